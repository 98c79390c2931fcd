#pragma once

#include <stdexcept>

namespace velkora_host {

// What the kit cannot do, in one sentence for people: names the disk, volume or file, what was
// asked of it, and the value or Windows error that came back.
class HostError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace velkora_host
