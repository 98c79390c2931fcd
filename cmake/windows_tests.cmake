# The tests of the Windows build. They run through Wine, and need no other program.
set(INSTALL_GTEST OFF CACHE BOOL "The package is of the library alone" FORCE)
add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

set(tests ${PROJECT_SOURCE_DIR}/tests)

# Everything in the program, so that it runs wherever it is copied to.
function(velkora_add_windows_test name)
  add_executable(${name} ${ARGN})
  target_include_directories(${name} PRIVATE ${tests} ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE velkora_warnings GTest::gtest_main GTest::gmock)
  # An optimising g++ 12 warns of faults in its own string and stream headers; tests also compile
  # faster this way.
  target_compile_options(${name} PRIVATE -O0)
  target_link_options(${name} PRIVATE -static)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()

# The suite of the seam: compiled once, for the simulated machine and for Windows itself.
set(conformance ${tests}/conformance)
file(GLOB suite_sources CONFIGURE_DEPENDS ${conformance}/*_test.cpp
  ${conformance}/conformance_fixture.cpp ${conformance}/disk/*.cpp ${conformance}/program/*.cpp)
set(suite_tests ${suite_sources})
list(FILTER suite_sources EXCLUDE REGEX "/program/[a-z_]*_test.cpp$")
list(FILTER suite_tests INCLUDE REGEX "/program/[a-z_]*_test.cpp$")
add_library(velkora_suite OBJECT ${suite_sources})

# What tests on the simulated machine have in common.
file(GLOB support_sources CONFIGURE_DEPENDS ${tests}/support/*.cpp)
list(FILTER support_sources EXCLUDE REGEX "precompiled.cpp$")
add_library(velkora_support OBJECT ${support_sources})
target_link_libraries(velkora_support PRIVATE velkora_core velkora_warnings GTest::gtest GTest::gmock)
target_include_directories(velkora_support
  PRIVATE ${tests} ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
target_compile_options(velkora_support PRIVATE -O0)
target_precompile_headers(velkora_support PRIVATE ${tests}/support/precompiled.h)

# The library and the simulated machine, compiled for Windows.
file(GLOB simulated_tests CONFIGURE_DEPENDS ${tests}/unit/*.cpp ${tests}/simulator/*.cpp
  ${tests}/host/*.cpp)
velkora_add_windows_test(velkora_tests ${simulated_tests} ${suite_tests}
  ${conformance}/machine.cpp)
target_precompile_headers(velkora_tests REUSE_FROM velkora_support)
velkora_group(velkora_tests)
target_link_libraries(velkora_tests
  PRIVATE velkora_suite velkora_support velkora_host velkora_core velkora_simulator)
target_link_libraries(velkora_suite PRIVATE velkora_warnings GTest::gtest GTest::gmock)
target_include_directories(velkora_suite
  PRIVATE ${tests} ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
target_compile_options(velkora_suite PRIVATE -O0)
target_precompile_headers(velkora_suite PRIVATE
  <algorithm> <array> <filesystem> <functional> <gmock/gmock.h> <gtest/gtest.h> <map> <span> <string>
  <vector>)

# The same suite of the seam against Windows: a program to copy to a machine that has one. Here it
# runs without a disk to wipe.
file(GLOB conformance_sources CONFIGURE_DEPENDS ${conformance}/windows/*.cpp)
velkora_add_windows_test(velkora_conformance ${conformance_sources}
  ${tests}/support/temp_folder.cpp)
target_link_libraries(velkora_conformance PRIVATE velkora_suite velkora_windows)
target_link_options(velkora_conformance PRIVATE -s)
set_target_properties(velkora_conformance PROPERTIES OUTPUT_NAME velkora-conformance)

# What keeps a disk from being wiped by mistake.
function(velkora_add_refusal_test name message)
  add_test(NAME velkora_conformance_${name} COMMAND velkora_conformance ${ARGN})
  set_tests_properties(velkora_conformance_${name} PROPERTIES PASS_REGULAR_EXPRESSION "${message}")
endfunction()
velkora_add_refusal_test(asks_for_erase "--disk 0: everything on that disk would be lost" --disk 0)
velkora_add_refusal_test(finds_no_disk "--disk 97: there is no such disk" --disk 97 --erase)

# The DLL, found beside the program.
velkora_add_windows_test(dll_test ${tests}/windows/dll_test.cpp ${tests}/support/temp_folder.cpp)
target_link_libraries(dll_test PRIVATE version)
set_target_properties(dll_test PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:VelkoraSDK>)
add_dependencies(dll_test VelkoraSDK)

velkora_add_windows_test(log_last_error_test
  ${tests}/windows/log_last_error_test.cpp ${tests}/support/temp_folder.cpp)
target_link_libraries(log_last_error_test PRIVATE velkora_core velkora_windows)

velkora_add_windows_test(guard_test ${tests}/windows/guard_test.cpp)
target_link_libraries(guard_test PRIVATE velkora_windows)

# A stand-in for the outside vendor's library, found beside the program.
add_library(vendor_library SHARED
  ${tests}/windows/vendor/vendor_library.cpp ${tests}/windows/vendor/vendor_library.def)
set_target_properties(vendor_library PROPERTIES PREFIX "" OUTPUT_NAME BugSplat64
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/vendor)
target_include_directories(vendor_library PRIVATE ${tests})
target_link_libraries(vendor_library PRIVATE velkora_warnings)
target_link_options(vendor_library PRIVATE -static)
velkora_add_windows_test(crash_sender_test ${tests}/windows/crash_sender_test.cpp)
target_link_libraries(crash_sender_test PRIVATE velkora_windows)
set_target_properties(crash_sender_test PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/vendor)
add_dependencies(crash_sender_test vendor_library)

velkora_add_windows_test(minidump_test
  ${tests}/windows/minidump_test.cpp ${tests}/support/temp_folder.cpp)
target_link_libraries(minidump_test PRIVATE velkora_core velkora_windows)

# The library on the simulated machine, in front of which the linker finds the guard of Windows.
set(windows ${PROJECT_SOURCE_DIR}/src/platform/windows)
velkora_add_windows_test(access_violation_test ${tests}/windows/access_violation_test.cpp
  ${windows}/guard.cpp ${windows}/fault.cpp)
add_dependencies(access_violation_test velkora_windows)
target_link_libraries(access_violation_test PRIVATE
  velkora_support velkora_core velkora_simulator ${PROJECT_BINARY_DIR}/src/platform/windows/structured_guard.o)
