# Installation and the files that let other builds use the installed library:
#   lib/libbrimvel_tocra.so      the file the camera pipeline loads (no version
#                                suffix, no symbolic-link chain)
#   include/brimvel_tocra.h      the public C header
#   lib/cmake/BrimvelTocra/      find_package(BrimvelTocra CONFIG) gives the
#                                imported target BrimvelTocra::brimvel_tocra
#   lib/pkgconfig/brimvel_tocra.pc
#   bin/tocra_demo               when the demo tool is built
# The version is in the package files only. Both package files find the
# installed tree relative to their own location, so the tree can be moved
# or staged in a target root file system.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(BRIMVEL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/BrimvelTocra)

install(TARGETS brimvel_tocra EXPORT BrimvelTocraTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/brimvel_tocra.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

if(BRIMVEL_LOG_STANDIN)
  # Linux cross builds log through the stand-in liblog.so: it goes next to the
  # library, which finds it there at run time. In the CMake package it is
  # BrimvelTocra::log_standin, so that linkers find it for the library.
  set_target_properties(log PROPERTIES EXPORT_NAME log_standin)
  install(TARGETS log EXPORT BrimvelTocraTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set_property(TARGET brimvel_tocra APPEND PROPERTY INSTALL_RPATH "$ORIGIN")
endif()

install(EXPORT BrimvelTocraTargets NAMESPACE BrimvelTocra:: DESTINATION ${BRIMVEL_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/BrimvelTocraConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/package/BrimvelTocraConfig.cmake
                              INSTALL_DESTINATION ${BRIMVEL_PACKAGE_DIR})
# The pointer size is checked too: a 32-bit tree is not offered to a 64-bit build.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/BrimvelTocraConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/BrimvelTocraConfig.cmake
              ${PROJECT_BINARY_DIR}/package/BrimvelTocraConfigVersion.cmake
        DESTINATION ${BRIMVEL_PACKAGE_DIR})

# pkg-config: the prefix is found from the .pc file's own folder.
set(_pcdir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${_pcdir}")
  set(BRIMVEL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  # As many ".." as the pkgconfig folder is deep (lib/pkgconfig -> ../..,
  # lib/arm-linux-gnueabihf/pkgconfig -> ../../..).
  file(RELATIVE_PATH _up /root/${_pcdir} /root)
  string(REGEX REPLACE "/$" "" _up "${_up}")
  set(BRIMVEL_PC_PREFIX "\${pcfiledir}/${_up}")
endif()
foreach(_d LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_d}}")
    set(BRIMVEL_PC_${_d} "${CMAKE_INSTALL_${_d}}")
  else()
    set(BRIMVEL_PC_${_d} "\${prefix}/${CMAKE_INSTALL_${_d}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/brimvel_tocra.pc.in ${PROJECT_BINARY_DIR}/package/brimvel_tocra.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/brimvel_tocra.pc DESTINATION ${_pcdir})
