// What a folder holds, entry by entry.
#pragma once

#include <utility>

#include "platform/win32_types.h"

namespace velkora {

struct DirectoryEntry {
  WideString path;  // the listed folder's, with the entry's name behind it
  bool is_directory = false;
};

// Lists a folder without "." and "..", in the order of the file system. The system is asked for an
// entry when Next is called and no sooner. The find handle is closed by the last Next, by a Next
// that throws, or by Close; there is no destructor that would.
class DirectoryListing {
 public:
  // `folder` ends in a backslash.
  explicit DirectoryListing(WideString folder) : folder_(std::move(folder)) {}

  // Gives the next entry, or false at the end, behind which it must not be called again. A folder
  // that cannot be listed, or cannot be listed any further, throws
  // std::filesystem::filesystem_error with the Windows error as its code; its text begins
  // "directory_iterator::directory_iterator" or "directory_iterator::operator++". The type comes
  // with the listing, so that asking for it cannot fail.
  bool Next(DirectoryEntry& entry);

  // Ends the listing early; does nothing behind its end.
  void Close();

 private:
  bool Find(WIN32_FIND_DATAW& data);

  WideString folder_;
  HANDLE find_ = INVALID_HANDLE_VALUE;
};

}  // namespace velkora
