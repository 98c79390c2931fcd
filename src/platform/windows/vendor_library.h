// The outside vendor's crash library, if it is installed: its class is found by the names that its
// compiler gave the members.
#pragma once

#include <cstdint>

#include "platform/crash_services.h"

namespace win32 {

// The members, as the functions that they are in the machine's calling convention: the object goes
// in front.
struct VendorMembers {
  void (*construct)(void* object, const WCHAR* database, const WCHAR* application,
                    const WCHAR* version, const WCHAR* fourth, std::uint32_t flags);
  std::uint32_t (*get_mini_dump_type)(void* object);
  void (*set_mini_dump_type)(void* object, std::uint32_t type);
  void (*set_callback)(void* object, MiniDmpSender::Callback callback);
  void (*send_additional_file)(void* object, const WCHAR* path);
  void (*create_report)(void* object, EXCEPTION_POINTERS* pointers);
};

// Loads the library, for good, and finds the members. False when it is not there or one is missing.
bool LoadVendorLibrary(VendorMembers& members);

}  // namespace win32
