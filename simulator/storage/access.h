// How an image is opened.
#pragma once

namespace simulator {

enum class Access { kReadOnly, kReadWrite };

}  // namespace simulator
