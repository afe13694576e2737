# Debian packages of the four components.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL daemon platform platform-dev tools)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_VENDOR "Firmware download daemon")
set(CPACK_PACKAGE_CONTACT "Firmware download daemon developers <fw-download@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})

set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()

# Written out, since the tool that finds them knows only libraries of this machine's own architecture. The versions are
# those of Debian 12, on which the packages are built; script/package tries them in an empty root.
set(base "libc6 (>= 2.36), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
set(http "libcurl4 (>= 7.88.1), libdeflate0 (>= 1.14)")
set(seal "")
if(FW_SEAL)
  set(seal "libsodium23 (>= 1.0.18), ")
endif()
set(version "${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME fw-download)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION
  "firmware download daemon\nLearns from the configuration database which software version the\nterminal is to run, fetches the needed parts of its image over HTTP\nand prepares them for installation.")
# A terminal brings a platform library of its own, packaged as libvex1.
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "${base}, ${http}, libvex-host | libvex1, init-system-helpers (>= 1.54)")
set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS "ca-certificates, dbus")
set(debian ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
  ${debian}/conffiles ${debian}/postinst ${debian}/prerm ${debian}/postrm)

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libvex-host)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES libvex1)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS "${base}, libsqlite3-0 (>= 3.40), libsystemd0 (>= 252)")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_RECOMMENDS dbus)
# Tells other packages' builds which package the library is in.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/shlibs "libvex 1 libvex-host (>= ${version})\n")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/shlibs ${debian}/triggers)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
  "platform library of the terminal, for any Linux\nEvent loop, daemon base, message bus on D-Bus and configuration\ndatabase on SQLite, for machines that have no platform library of\ntheir own.")

set(CPACK_DEBIAN_PLATFORM-DEV_PACKAGE_NAME libvex-host-dev)
set(CPACK_DEBIAN_PLATFORM-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PLATFORM-DEV_PACKAGE_DEPENDS "libvex-host (= ${version})")
set(CPACK_COMPONENT_PLATFORM-DEV_DESCRIPTION
  "headers of the terminal's platform library\nFor building programs against libvex.so.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME fw-download-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${base}, ${http}, libtomlplusplus3 (>= 3.3.0), ${seal}libvex-host (>= ${version})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "bubblewrap, dbus-daemon, fw-download, nginx-light")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "tools beside the firmware download daemon\nzemp makes and checks images, vexctl reads and writes configuration\ndatabase and bus, fw_lab runs whole updates on the desk.")

include(CPack)
