// What tests of the FAT32 shrink compare.
#pragma once

#include <ostream>

#include "shrink/fat32_files.h"
#include "support/fault_of.h"

namespace velkora {

inline bool operator==(const ClusterRun& left, const ClusterRun& right) {
  return left.first == right.first && left.length == right.length;
}
inline bool operator==(const FileExtent& left, const FileExtent& right) {
  return left.vcn == right.vcn && left.count == right.count;
}
inline bool operator==(const FileMove& left, const FileMove& right) {
  return left.file == right.file && left.vcn == right.vcn && left.lcn == right.lcn &&
         left.count == right.count;
}
inline bool operator==(const DirectoryDebris& left, const DirectoryDebris& right) {
  return left.previous == right.previous && left.first == right.first &&
         left.start_vcn == right.start_vcn && left.count == right.count && left.next == right.next;
}

inline void PrintTo(const ClusterRun& run, std::ostream* out) {
  *out << "{" << run.first << ", " << run.length << "}";
}
inline void PrintTo(const FileExtent& extent, std::ostream* out) {
  *out << "{vcn " << extent.vcn << ", " << extent.count << "}";
}
inline void PrintTo(const FileMove& move, std::ostream* out) {
  *out << "{vcn " << move.vcn << " to lcn " << move.lcn << ", " << move.count << "}";
}
inline void PrintTo(const DirectoryDebris& row, std::ostream* out) {
  *out << "{" << row.previous << " < " << row.first << " (vcn " << row.start_vcn << ", "
       << row.count << ") > " << row.next << "}";
}

}  // namespace velkora
