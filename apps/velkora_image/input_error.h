// What a user asked for cannot be done as it was asked for.
#pragma once

#include <stdexcept>

namespace velkora_image {

// Bad usage or input that cannot be read, found before anything was touched. The text is one line
// that names the file or the option, and the value.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace velkora_image
