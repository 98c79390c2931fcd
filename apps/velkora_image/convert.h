// The command `convert`.
#pragma once

#include "apps/velkora_image/options.h"

namespace velkora_image {

// Converts the image in place, tells about it on the console, and returns the exit status. Throws
// InputError, before anything is written to the image.
int Convert(const ConvertOptions& options);

}  // namespace velkora_image
