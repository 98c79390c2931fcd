# Most of a source's compilation goes into headers, so sources that can be read as one are compiled
# as one. The release build goes without it: there each source is seen to include what it needs.
option(VELKORA_GROUP "Compile the sources of a target in groups" OFF)
if(VELKORA_GROUP)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
endif()

function(velkora_group target)
  if(NOT VELKORA_GROUP)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  execute_process(
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/group_sources --bytes 50000 ${sources}
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
    OUTPUT_VARIABLE groups OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" groups "${groups}")
  set(number 0)
  foreach(group IN LISTS groups)
    math(EXPR number "${number} + 1")
    string(REPLACE "," ";" members "${group}")
    set_source_files_properties(${members} PROPERTIES UNITY_GROUP ${target}_${number})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()
