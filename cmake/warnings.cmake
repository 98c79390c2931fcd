# Warnings are errors in everything that this project compiles for itself; another project may use
# a compiler that knows more of them.
add_library(velkora_warnings INTERFACE)
target_compile_options(velkora_warnings INTERFACE
  $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>
  -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-qual
  -Wnon-virtual-dtor -Woverloaded-virtual -Wundef -Wformat=2 -Wimplicit-fallthrough
  -Wdouble-promotion)
if(WIN32)
  # The Windows headers fix these; the library needs Windows 10 1709 or later layouts of the
  # partition structures.
  target_compile_definitions(velkora_warnings INTERFACE
    _WIN32_WINNT=0x0A00 NTDDI_VERSION=0x0A000004 WIN32_LEAN_AND_MEAN NOMINMAX)
endif()

set(VELKORA_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize takes them")
if(VELKORA_SANITIZE)
  add_compile_options(-fsanitize=${VELKORA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELKORA_SANITIZE})
endif()

# Only the library is counted: counters in the tests would only take time.
option(VELKORA_COVERAGE "Count the library's lines and branches for gcovr" OFF)

# Halves the time that a build takes. The release build goes without it: each file is seen to include
# what it needs, and an optimising g++ 12 would warn of its own headers.
option(VELKORA_PRECOMPILE "Precompile the standard headers of the library and the machine" OFF)
function(velkora_precompile target)
  if(VELKORA_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <array> <cstdint> <filesystem> <functional> <limits> <map> <memory> <optional>
      <span> <string> <string_view> <utility> <vector>
      ${PROJECT_SOURCE_DIR}/src/platform/win32_types.h)
  endif()
endfunction()
