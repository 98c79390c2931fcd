#include "host/rescue_fixture.h"

#include <fstream>
#include <random>

#include "host/undo.h"
#include "platform/win32.h"

namespace testing_support {

Bytes RandomBytes(std::size_t length, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(length);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random() >> 24);
  return bytes;
}

void RescueTest::AttachRandomDisk(std::uint64_t size, std::uint32_t sector_size) {
  disk_ = &machine_.AttachDisk(1, NewImage("disk1.img", size), sector_size);
  WriteBytes(*disk_, 0, RandomBytes(static_cast<std::size_t>(size), 1));
  handle_ =
      win32::CreateFileA(disk_->path().c_str(), GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(handle_, INVALID_HANDLE_VALUE);
  machine_.calls().Clear();
}

velkora_host::RescueDisk RescueTest::Target() const {
  return {handle_, disk_->device().size(), disk_->device().sector_size()};
}

Bytes RescueTest::DiskBytes() const {
  return ReadBytes(*disk_, 0, static_cast<std::size_t>(disk_->device().size()));
}

void RescueTest::Overwrite(const ByteRange& range) {
  Bytes bytes = ReadBytes(*disk_, range.offset, static_cast<std::size_t>(range.length));
  for (std::byte& byte : bytes) byte ^= std::byte{0x5A};
  WriteBytes(*disk_, range.offset, bytes);
}

std::uint64_t RescueTest::Undo() const {
  return velkora_host::Undo(kRescuePath, handle_, disk_->device().size());
}

void RescueTest::SaveSealed(const std::vector<ByteRange>& ranges,
                            const std::vector<ByteRange>& later) {
  velkora_host::RescueWriter writer(kRescuePath, Target());
  writer.Save(ranges);
  writer.Seal();
  for (const ByteRange& range : later) writer.SaveMore(range);
}

std::string RescueTest::FileText() const {
  return TextOf(folder_.path() / "disk.rescue");
}

void RescueTest::SetFileText(std::string_view text) const {
  const std::filesystem::path file = folder_.path() / "disk.rescue";
  std::ofstream(file, std::ios::app).close();
  // Some file systems flush a file that is emptied and written, and a test does this a thousand
  // times.
  std::fstream(file, std::ios::in | std::ios::out | std::ios::binary) << text;
  std::filesystem::resize_file(file, text.size());
}

}  // namespace testing_support
