# Cross build for 32-bit ARM with Debian's cross compilers; programs run under qemu-arm.  ARM_TRIPLE says which.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER ${ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ARM_TRIPLE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm-static;-L;/usr/${ARM_TRIPLE}")
list(APPEND CMAKE_FIND_ROOT_PATH /usr/${ARM_TRIPLE}) # beside those that the user names
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # all of it is built by this one compiler
