# Where `cmake --install` puts what.  Three components: "recorder" (the program and its services), "tool" (recordcard),
# "dev" (libraries, headers, CMake package, pkg-config files).
#
# Libraries and headers lie in folders of the project's own: names like libLog.a and common belong to nobody alone.
include(GNUInstallDirs)
set(RECORDER_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME})
set(RECORDER_LIBDIR ${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME})
set(RECORDER_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})
set(RECORDER_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH RECORDER_PREFIX_FROM_PKGCONFIG
  ${CMAKE_INSTALL_PREFIX}/${RECORDER_PKGCONFIGDIR} ${CMAKE_INSTALL_PREFIX})

# install_pkg_config(<file's name> <what it is> <link flags> <modules that it needs>)
#
# Paths are relative to the file itself: the whole prefix may be moved, as a cross build's staging folder is.
function(install_pkg_config name description libs modules)
  set(requires)
  foreach(module ${modules})
    list(APPEND requires ${PROJECT_NAME}-${module})
  endforeach()
  list(JOIN requires " " requires)
  configure_file(${PROJECT_SOURCE_DIR}/package/pkg-config.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION ${RECORDER_PKGCONFIGDIR} COMPONENT dev)
endfunction()

# install_module(<folder's name> <library's name> <public headers> <modules that it uses>)
function(install_module name library headers modules)
  install(TARGETS ${name} EXPORT ${PROJECT_NAME}Targets
    ARCHIVE DESTINATION ${RECORDER_LIBDIR} COMPONENT dev
    INCLUDES DESTINATION ${RECORDER_INCLUDEDIR})
  if(RECORDER_AS_ONE)  # what only this very compiler could read stays here
    set(file "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${RECORDER_LIBDIR}/lib${library}.a")
    install(CODE "execute_process(COMMAND ${CMAKE_OBJCOPY} --wildcard --remove-section=.gnu.lto_* \"${file}\"
      COMMAND_ERROR_IS_FATAL ANY)" COMPONENT dev)
  endif()
  install(FILES ${headers} DESTINATION ${RECORDER_INCLUDEDIR} COMPONENT dev)
  install_pkg_config(${PROJECT_NAME}-${name} "${name} of the SD-card recorder" "-l${library}" "${modules}")
  set_property(GLOBAL APPEND PROPERTY RECORDER_MODULES ${name})
endfunction()
