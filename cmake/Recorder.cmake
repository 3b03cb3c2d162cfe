# How every module, program and test of this project is declared.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Werror)

# warn_of_lost_values()
#
# For what the folder that calls it builds, and those below it: a value that another type may not hold and a name that
# hides another are errors.  The tests go without: there a test's own wrong number is seen at once.
macro(warn_of_lost_values)
  # Clang counts changes of sign in as well; with a sanitizer's checks in between gcc no longer sees what bounds a value.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT RECORDER_SANITIZE)
    add_compile_options(-Wconversion -Wshadow)
  endif()
endmacro()

# RECORDER_SANITIZE: empty, "address,undefined" or "thread" (set by the presets).
set(RECORDER_SANITIZE "" CACHE STRING "Sanitizers to build with, comma separated")
if(RECORDER_SANITIZE)
  add_compile_options(-fsanitize=${RECORDER_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RECORDER_SANITIZE})
  if(RECORDER_SANITIZE STREQUAL "thread")
    add_compile_options(-Wno-tsan)  # fences: ours order the rings, whose other side it cannot see at all
  endif()
endif()

# The recorder is optimized as one: what it never calls is left out, and a call into another module costs what one inside
# costs.  A quarter less code on ARM.  The modules' libraries hold ordinary code as well, for every other program that links them.
include(CheckCompilerFlag)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT RECORDER_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  check_compiler_flag(CXX "-flto=auto;-ffat-lto-objects" RECORDER_AS_ONE)
endif()

# recorder_module(<folder name> SOURCES <files...> [USES <modules...>] [PUBLIC_HEADERS <files...>])
#
# A module of the recorder: one static library whose public header has the folder's name; PUBLIC_HEADERS are
# those that it includes on top.  No exceptions, no RTTI: the recorder runs on a small target.
function(recorder_module name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;PUBLIC_HEADERS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  string(REGEX REPLACE "^lib" "" output ${name})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME ${output})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>)
  target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  if(RECORDER_AS_ONE)
    # As one, -O3 is a sixth more code than -O2 and no faster.
    target_compile_options(${name} PRIVATE -flto=auto -ffat-lto-objects $<$<CONFIG:Release>:-O2>)
  endif()
  target_link_libraries(${name} PUBLIC ${ARG_USES} Threads::Threads
    INTERFACE $<INSTALL_INTERFACE:stdc++>) # a C program's linker does not bring it
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.h)
    set_property(GLOBAL APPEND PROPERTY RECORDER_PUBLIC_HEADERS ${name})
    list(APPEND ARG_PUBLIC_HEADERS ${name}.h)
  endif()
  install_module(${name} ${output} "${ARG_PUBLIC_HEADERS}" "${ARG_USES}")
endfunction()

# Everything that the tests with the label "threads" run.
add_custom_target(thread_tests)

# recorder_test(<name> SOURCES <files...> USES <modules...> [LABELS <labels...>] [TIMEOUT <seconds>])
#
# A GoogleTest program, run inside a camera of its own: the real paths, queues and segments exist in
# there and nothing outside is touched (see desk/in-camera).  Label "threads" puts it into the
# thread-sanitizer run.
function(recorder_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;USES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_USES} support GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/desk/in-camera ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  if(RECORDER_SANITIZE) # built without optimization, and watched
    math(EXPR ARG_TIMEOUT "${ARG_TIMEOUT} * 5")
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT})
  if("threads" IN_LIST ARG_LABELS)
    add_dependencies(thread_tests ${name})
  endif()
endfunction()
