# ARMv7 with floating-point registers: Debian's g++-arm-linux-gnueabihf ("armhf").
set(ARM_TRIPLE arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/arm-debian.cmake)
