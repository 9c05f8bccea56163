# `cmake --install`: the driver with its headers, the simulated phone, oisctl with its manual and completions, a CMake
# package and pkg-config files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(OIS_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/ois_drv)
set(OIS_PLATFORM_INCLUDE_DIR ${OIS_INCLUDE_DIR}/platform)
set(OIS_PHONE_INCLUDE_DIR ${OIS_INCLUDE_DIR}/phone)
set(OIS_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ois_drv)

# The class, and what goes over the wire, which a tool or a simulation shares with it.
foreach(header ois_drv.h diagnostics/session_buffers.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES aaa/peripheraldriver/ois/${header} DESTINATION ${OIS_INCLUDE_DIR}/${folder})
endforeach()
install(DIRECTORY aaa/peripheraldriver/ois/wire DESTINATION ${OIS_INCLUDE_DIR} FILES_MATCHING PATTERN *.h)
install(DIRECTORY platform/include/ DESTINATION ${OIS_PLATFORM_INCLUDE_DIR} FILES_MATCHING PATTERN *.h)
set_target_properties(ois_drv_shared PROPERTIES EXPORT_NAME ois_drv)
set(installed ois_drv_shared ois_drv_static)
# From the folder of the pkg-config files to the prefix.
file(RELATIVE_PATH OIS_PKGCONFIG_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/ois_drv.pc.in ois_drv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ois_drv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(OIS_BUILD_TOOLS)
  list(APPEND installed ois_phone)
  configure_file(cmake/ois_phone.pc.in ois_phone.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/ois_phone.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  install(TARGETS oisctl RUNTIME)
  install(TARGETS ois_spy LIBRARY)
  # Both are compiled in; the files are for copying and changing.
  install(DIRECTORY phone/modules DESTINATION ${CMAKE_INSTALL_DATADIR}/ois_drv FILES_MATCHING PATTERN *.toml)
  install(DIRECTORY tools/oisctl/scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/ois_drv FILES_MATCHING PATTERN *.toml)
  set(documents ${PROJECT_BINARY_DIR}/tools/oisctl/documents)
  install(FILES ${documents}/oisctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${documents}/oisctl DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${documents}/_oisctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES ${documents}/oisctl.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

# What is installed, and no more.
add_custom_target(product DEPENDS ${installed})
if(OIS_BUILD_TOOLS)
  add_dependencies(product oisctl oisctl_documents ois_spy)
endif()

foreach(target ${installed})
  target_include_directories(${target} INTERFACE
      $<INSTALL_INTERFACE:${OIS_INCLUDE_DIR}> $<INSTALL_INTERFACE:${OIS_PLATFORM_INCLUDE_DIR}>)
endforeach()
install(TARGETS ${installed} EXPORT ois_drv FILE_SET HEADERS DESTINATION ${OIS_PHONE_INCLUDE_DIR})
install(EXPORT ois_drv NAMESPACE ois_drv:: FILE ois_drvTargets.cmake DESTINATION ${OIS_PACKAGE_DIR})
configure_package_config_file(cmake/ois_drvConfig.cmake.in ois_drvConfig.cmake INSTALL_DESTINATION ${OIS_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ois_drvConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ois_drvConfig.cmake ${PROJECT_BINARY_DIR}/ois_drvConfigVersion.cmake
        DESTINATION ${OIS_PACKAGE_DIR})

# `cpack -G DEB`: a Debian package, installed in /usr.
set(CPACK_PACKAGE_NAME oisctl)
set(CPACK_PACKAGE_CONTACT "the maintainers of ${PROJECT_NAME} <root@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS gnuplot-nox)  # for plots
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/aaa/peripheraldriver/ois)
if(OIS_BUILD_TOOLS)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/phone)
endif()
include(CPack)
