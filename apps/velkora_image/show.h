// The command `show`.
#pragma once

#include "apps/velkora_image/options.h"

namespace velkora_image {

// Prints the disk to standard output and returns the exit status. Throws InputError.
int Show(const ShowOptions& options);

}  // namespace velkora_image
