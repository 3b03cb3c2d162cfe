# ARMv5 and later, also without a floating-point unit: Debian's g++-arm-linux-gnueabi ("armel").
set(ARM_TRIPLE arm-linux-gnueabi)
include(${CMAKE_CURRENT_LIST_DIR}/arm-debian.cmake)
