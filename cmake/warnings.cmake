# Warnings are errors in everything that this project compiles.
add_library(velkora_warnings INTERFACE)
target_compile_options(velkora_warnings INTERFACE
  -Wall -Wextra -Werror -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-qual
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

option(VELKORA_COVERAGE "Instrument for gcovr" OFF)
if(VELKORA_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
