// A stand-in for the outside vendor's crash library: what it was told, in one line for each call.
#pragma once

#include <cstddef>

// Found by this name in the library: writes the lines so far, with their NUL, and forgets them.
using ReadRecordFunction = void (*)(char* text, std::size_t size);
