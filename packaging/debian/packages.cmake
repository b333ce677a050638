# The Debian packages: zelkor-platformd, and zelkor-bmc-ipmi, whose library has another licence.
set(debian_folder ${CMAKE_CURRENT_LIST_DIR})
set(packages_folder ${CMAKE_CURRENT_BINARY_DIR}/debian)
find_program(GZIP gzip REQUIRED)

set(packages zelkor-platformd)
set(CPACK_COMPONENTS_ALL daemon)
if(TARGET zelkor-bmc-ipmi)
  list(APPEND packages zelkor-bmc-ipmi)
  list(APPEND CPACK_COMPONENTS_ALL ipmi)
endif()

# Files that every package must have, each in a folder of its own.
foreach(package ${packages})
  set(component daemon)
  if(package STREQUAL zelkor-bmc-ipmi)
    set(component ipmi)
  endif()
  set(folder ${packages_folder}/${package})
  add_custom_command(OUTPUT ${folder}/changelog.Debian.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
    COMMAND sh -c "sed s/@PACKAGE@/${package}/ '${debian_folder}/changelog' | '${GZIP}' -9n > '${folder}/changelog.Debian.gz'"
    DEPENDS ${debian_folder}/changelog VERBATIM)
  add_custom_target(changelog_of_${package} ALL DEPENDS ${folder}/changelog.Debian.gz)
  install(FILES ${folder}/changelog.Debian.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
  install(FILES ${debian_folder}/${package}.copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    RENAME copyright COMPONENT ${component})
  if(EXISTS ${debian_folder}/${package}.lintian-overrides)
    install(FILES ${debian_folder}/${package}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
      RENAME ${package} COMPONENT ${component})
  endif()
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelkor-platformd)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "zelkor-platformd maintainers <maintainers@zelkor.example>")
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR}/packages)
# Files go below /usr, but also to /etc and /lib, whatever the prefix of the build.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The version of the package that stands in the dependency is known when the package is made.
set(CPACK_PROJECT_CONFIG_FILE ${debian_folder}/when_packing.cmake)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME zelkor-platformd)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION "Platform daemon of an instrument chassis
Watches the sensors of all boards of a chassis, logs crossed limits, drives
the fans by the hottest sensor, powers a board down before heat damages it,
keeps the boards' clocks, and shows everything to other programs as a tree
that they read, write and watch over the network.
.
Boards are simulated, or reached by their management controllers over IPMI,
for which the package zelkor-bmc-ipmi is needed.")
# How the service's user comes to be.
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS logrotate)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS zelkor-bmc-ipmi)
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
  ${debian_folder}/conffiles ${debian_folder}/postinst ${debian_folder}/prerm ${debian_folder}/postrm)

set(CPACK_DEBIAN_IPMI_PACKAGE_NAME zelkor-bmc-ipmi)
set(CPACK_COMPONENT_IPMI_DESCRIPTION "Boards over IPMI for the platform daemon
The part of the platform daemon of an instrument chassis that reaches boards
through their management controllers, by RMCP+ over the network or by the
kernel's IPMI driver. It is loaded when the configuration asks for it.
.
It stands on libfreeipmi and is therefore, as a whole, under the terms of the
GNU General Public License, version 3 or later.")

include(CPack)
