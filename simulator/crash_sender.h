// What the library told the crash sender of its outside vendor, and the vendor's part in a test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/crash_services.h"

namespace simulator {

// Of all senders together; each new one overwrites the texts and the flags. Texts are UTF-8.
struct CrashSender {
  std::size_t senders_made = 0;
  std::string database;
  std::string application;
  std::string version;
  bool has_fourth_text = false;
  std::uint32_t flags = 0;
  // What a new sender begins with is what stands here.
  std::uint32_t dump_type = 0;
  win32::MiniDmpSender::Callback callback = nullptr;
  std::vector<std::string> attachments;
  std::size_t reports = 0;

  // Plays the vendor that has something to tell. The callback's answer; false without one.
  bool Tell(std::uint32_t code) const {
    return callback != nullptr && callback(code, nullptr, nullptr);
  }
};

}  // namespace simulator
