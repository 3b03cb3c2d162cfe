# Cross build with a uClibc toolchain of your own (a camera's SDK, or one that Buildroot made):
#
#   cmake --preset uclibc -DUCLIBC_TOOLCHAIN=/opt/sdk -DUCLIBC_TRIPLE=arm-buildroot-linux-uclibcgnueabi
#
#   UCLIBC_TOOLCHAIN   the toolchain's folder: bin/TRIPLE-gcc lies in it
#   UCLIBC_TRIPLE      how the names of its programs begin
#   UCLIBC_SYSROOT     the target's libraries and headers, where the compiler does not know them by itself
#   UCLIBC_FLAGS       what the processor needs, e.g. "-mcpu=arm926ej-s"
#
# Each may also come from the environment.  The C library must have threads and System V IPC
# (UCLIBC_HAS_THREADS_NATIVE, UCLIBC_HAS_SYSV_IPC) and files over 2 GiB (UCLIBC_HAS_LFS); the compiler C++20.
set(CMAKE_SYSTEM_NAME Linux)
foreach(setting UCLIBC_TOOLCHAIN UCLIBC_TRIPLE UCLIBC_SYSROOT UCLIBC_FLAGS)
  if(NOT ${setting} AND DEFINED ENV{${setting}})
    set(${setting} $ENV{${setting}})
  endif()
endforeach()
if(NOT UCLIBC_TOOLCHAIN OR NOT UCLIBC_TRIPLE)
  message(FATAL_ERROR "set UCLIBC_TOOLCHAIN and UCLIBC_TRIPLE (see ${CMAKE_CURRENT_LIST_FILE})")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES UCLIBC_TOOLCHAIN UCLIBC_TRIPLE UCLIBC_SYSROOT UCLIBC_FLAGS)

string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${UCLIBC_TRIPLE})
set(CMAKE_C_COMPILER ${UCLIBC_TOOLCHAIN}/bin/${UCLIBC_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${UCLIBC_TOOLCHAIN}/bin/${UCLIBC_TRIPLE}-g++)
set(CMAKE_C_FLAGS_INIT "${UCLIBC_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${UCLIBC_FLAGS} -Wno-psabi") # all of it is built by this one compiler
if(UCLIBC_SYSROOT)
  set(CMAKE_SYSROOT ${UCLIBC_SYSROOT})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
