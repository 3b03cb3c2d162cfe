# What a release build does against memory faults that are still in it.  The recorder takes bytes from other
# processes and from a card that anybody may have written; the card tool from that card.
#
# Sanitizer builds bring their own, and debug builds stay easy to step through.
include(CheckCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

option(RECORDER_STATIC "Link the recorder statically" OFF)
if(RECORDER_STATIC)
  check_linker_flag(CXX -static-pie HAS_STATIC_PIE)
endif()
check_pie_supported(LANGUAGES CXX)
check_compiler_flag(CXX -fstack-protector-strong HAS_STACK_PROTECTOR)
check_compiler_flag(CXX -fstack-clash-protection HAS_STACK_CLASH_PROTECTION)

# harden_programs()
#
# For the programs and libraries of the folder that calls it, and of those below it.
macro(harden_programs)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  if(RECORDER_STATIC AND HAS_STATIC_PIE)
    add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-static-pie>)
  elseif(RECORDER_STATIC) # a C library without start code for it (Debian's for ARM): at a fixed place then
    set(CMAKE_POSITION_INDEPENDENT_CODE OFF)
    add_link_options(-static)
  endif()

  if(NOT RECORDER_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    if(HAS_STACK_PROTECTOR)
      add_compile_options(-fstack-protector-strong)
    endif()
    if(HAS_STACK_CLASH_PROTECTION)
      add_compile_options(-fstack-clash-protection)
    endif()
    # Level 3 also bounds buffers whose size is known at run time alone; it needs gcc 12 (or clang 9).
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
      add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    else()
      add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    endif()
    add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)
  endif()

  # Each function in a section of its own, so that a program holds only those that it can reach.
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(LINKER:--gc-sections)
endmacro()
