#include <algorithm>
#include <cstring>
#include <utility>

#include "host/checksum.h"
#include "host/rescue_file.h"
#include "host/rescue_parser.h"

namespace velkora_host {

RescueReader::RescueReader(const std::string& path)
    : open_file_(path, OPEN_EXISTING),
      file_(open_file_.handle(), path),
      contents_(RescueParser(file_).Parse()) {}

std::vector<std::byte> RescueReader::Load(const RescuePiece& piece) const {
  std::vector<std::byte> stored(piece.stored);
  file_.Read(piece.place, stored);
  std::vector<std::byte> old_bytes;
  if (Unpack(piece, stored, old_bytes)) return old_bytes;
  throw RescueError(file_.name() + ": the piece at " + std::to_string(piece.place) +
                    " has changed since the file was checked");
}

RescueContents ReadRescueFile(const std::string& path) {
  return RescueReader(path).contents();
}

}  // namespace velkora_host
