#include "simulator/guid_row.h"

#include <cstddef>

namespace simulator {

std::uint64_t GuidRow::NextNumber() {
  // splitmix64.
  state_ += 0x9E3779B97F4A7C15u;
  std::uint64_t mixed = state_;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
  return mixed ^ (mixed >> 31);
}

GUID GuidRow::Next() {
  const std::uint64_t high = NextNumber();
  const std::uint64_t low = NextNumber();
  GUID guid{};
  guid.Data1 = static_cast<DWORD>(high & 0xFFFFFFFF);
  guid.Data2 = static_cast<WORD>(high >> 32);
  guid.Data3 = static_cast<WORD>(((high >> 48) & 0x0FFF) | 0x4000);  // version 4: random
  for (std::size_t i = 0; i < sizeof guid.Data4; ++i) {
    guid.Data4[i] = static_cast<BYTE>(low >> (8 * i));
  }
  guid.Data4[0] = static_cast<BYTE>((guid.Data4[0] & 0x3F) | 0x80);
  return guid;
}

}  // namespace simulator
