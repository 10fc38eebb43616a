# The Debian package and the RPM, both made by CPack of the same install rules:
# a file that is added to an installation from source is in both packages, with
# the same path and mode, without being listed again. What a distribution wants
# besides (its change log, its scripts) is in the components "DEB" and "RPM".

# Who answers for the packages, and is informed of holes; whoever hands packages on puts in
# their own (scripts/package --maintainer).
set(VELARIX_MAINTAINER "Velarix HA maintainers <velarix-ha@localhost>" CACHE STRING "Maintainer of the packages")
# Part of the packages' versions: packages of one release are built once for each
# distribution, and one for a newer distribution must be an upgrade.
set(VELARIX_PACKAGE_REVISION 1)

# --- what is needed on a server ------------------------------------------------
# packaging/dependencies.txt knows it. Libraries are left out, since both package
# managers find out by themselves which ones the programs are linked with, and so
# are essential packages of Debian.
file(STRINGS dependencies.txt runLines REGEX "^run +")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS dependencies.txt)
set(debDepends)
foreach(line ${runLines})
  string(REGEX REPLACE "^run +([^ ]+).*" "\\1" package "${line}")
  if(NOT package MATCHES "^(libpoco|grep$|coreutils$)")
    string(REPLACE "|" " | " package "${package}")
    list(APPEND debDepends "${package}")
  endif()
endforeach()
list(JOIN debDepends ", " debDepends)

set(description
  "One agent runs on each of two servers. They keep a set of programs under one"
  "shared address (the virtual IP) running on one of them and move both to the"
  "other one when the first breaks."
  ""
  "They exchange heartbeats over TCP, watch the programs in /proc, ping the"
  "gateway, the partner and the virtual IP, and read the carrier of both network"
  "interfaces. There is one settings file, no quorum server, no shared disk, and"
  "nothing to be built into the programs."
  ""
  "velarixctl makes and checks the settings, shows the state of the pair and its"
  "history, and moves the service.")

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS forget.sh)
file(READ forget.sh VELARIX_FORGET)
string(REGEX REPLACE "^(#[^\n]*\n)+" "" VELARIX_FORGET "${VELARIX_FORGET}")
configure_file(debian/postrm.in ${CMAKE_CURRENT_BINARY_DIR}/postrm @ONLY)
configure_file(rpm/postun.in ${CMAKE_CURRENT_BINARY_DIR}/postun @ONLY)

# --- common ----------------------------------------------------------------------
set(CPACK_GENERATOR "DEB;RPM")
set(CPACK_PACKAGE_NAME velarix-ha)
set(CPACK_PACKAGE_CONTACT "${VELARIX_MAINTAINER}")
set(CPACK_PACKAGE_VENDOR "Velarix HA")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "two-node high-availability agent")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
# A rule with an absolute path would install on this very machine.
set(CPACK_ERROR_ON_ABSOLUTE_INSTALL_DESTINATION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/package-parts.cmake)
set(CPACK_VELARIX_BUILD ${CMAKE_BINARY_DIR})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# --- Debian ------------------------------------------------------------------------
set(distribution unknown)
cmake_host_system_information(RESULT os QUERY DISTRIB_INFO)
if(os_ID)
  string(SUBSTRING "${os_ID}" 0 3 distribution)
  set(distribution "${distribution}${os_VERSION_ID}")
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE "${VELARIX_PACKAGE_REVISION}~${distribution}")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${debDepends}")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "logrotate, nftables")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, curl, openssh-client, wireguard-tools")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm
  ${CMAKE_CURRENT_BINARY_DIR}/postrm)
list(JOIN description "\n" CPACK_DEBIAN_PACKAGE_DESCRIPTION)

set(debianChangelog ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian)
configure_file(debian/changelog.in ${debianChangelog} @ONLY)
velarix_compress(${debianChangelog} ${debianChangelog}.gz)
velarix_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
install(FILES ${debianChangelog}.gz DESTINATION ${VELARIX_DOC} COMPONENT DEB EXCLUDE_FROM_ALL)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz DESTINATION ${VELARIX_DOC})
install(FILES debian/copyright debian/README.Debian DESTINATION ${VELARIX_DOC} COMPONENT DEB EXCLUDE_FROM_ALL)
install(FILES debian/lintian-overrides DESTINATION usr/share/lintian/overrides RENAME velarix-ha
        COMPONENT DEB EXCLUDE_FROM_ALL)
install(FILES service/velarix-ha.needrestart DESTINATION etc/needrestart/conf.d RENAME velarix-ha.conf
        COMPONENT DEB EXCLUDE_FROM_ALL)

# --- RPM -----------------------------------------------------------------------------
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE ${VELARIX_PACKAGE_REVISION})
set(CPACK_RPM_PACKAGE_RELEASE_DIST ON)
set(CPACK_RPM_PACKAGE_LICENSE MIT)
set(CPACK_RPM_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
set(CPACK_RPM_PACKAGE_DESCRIPTION "${CPACK_DEBIAN_PACKAGE_DESCRIPTION}")
# The packages of the same tools have other names there, and not one everywhere.
string(CONCAT CPACK_RPM_PACKAGE_REQUIRES
  "(net-tools or net-tools-deprecated), (procps-ng or procps), grep, coreutils, psmisc, "
  "(iproute or iproute2), iputils, findutils, util-linux")
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/post)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/postun)
set(CPACK_RPM_CHANGELOG_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.rpm)
configure_file(rpm/changelog.in ${CPACK_RPM_CHANGELOG_FILE} @ONLY)
set(CPACK_RPM_USER_FILELIST
  "%config(noreplace) /etc/default/velarix-ha"
  "%config(noreplace) /etc/logrotate.d/velarix-ha"
  "%config(noreplace) /etc/velarix-ha/notify.conf"
  "%config /etc/init.d/velarix-ha"
  "%doc /${VELARIX_DOC}/README.md"
  "%license /${VELARIX_DOC}/LICENSE")
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${VELARIX_DOC} COMPONENT RPM EXCLUDE_FROM_ALL)
# Directories of the system, which other packages own.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /etc /etc/default /etc/init.d /etc/logrotate.d /usr /usr/bin /usr/lib /usr/lib/systemd /usr/lib/systemd/system
  /usr/libexec /usr/share /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/doc
  /usr/share/man /usr/share/man/man1 /usr/share/man/man5 /usr/share/man/man8)
# The programs of two packages of one build may not collide over these links. And CPack
# has no other way to name the packager, or what is recommended.
set(CPACK_RPM_SPEC_MORE_DEFINE
  "%define _build_id_links none\n%define packager ${VELARIX_MAINTAINER}\nRecommends: nftables\nSuggests: wireguard-tools")

include(CPack)
