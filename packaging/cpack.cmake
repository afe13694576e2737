# Debian packages of the components, each of which brings only what it needs; docs/installing.md has them as a table.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL program service platform platform-dev lab vexctl zemp)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The symbols go to packages of their own, for core files and debuggers.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_VENDOR "Firmware download daemon")
set(CPACK_PACKAGE_CONTACT "Firmware download daemon developers <fw-download@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})

set(CPACK_DEBIAN_PACKAGE_RELEASE 2)
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
  set(seal ", libsodium23 (>= 1.0.18)")
endif()
set(version "${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# Before this very release the program was in fw-download, and the tools in fw-download-tools. Not ${version}: a later
# fw-download-bin must go over it in one dpkg -i, which unpacks it first.
set(earlier "fw-download (<< 0.1.0-2), fw-download-tools")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME fw-download-bin)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
  "firmware download daemon, the programs\nThe program alone, which lists images too, and fwctl, which tells what\nit is doing. No service is started: that\nis what fw-download adds.")
# A terminal brings a platform library of its own, packaged as libvex1.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${base}, ${http}${seal}, libvex-host | libvex1")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_BREAKS ${earlier})
set(CPACK_DEBIAN_PROGRAM_PACKAGE_REPLACES ${earlier})

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME fw-download)
set(CPACK_DEBIAN_SERVICE_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SERVICE_DEBUGINFO_PACKAGE OFF)
set(CPACK_COMPONENT_SERVICE_DESCRIPTION
  "firmware download daemon\nLearns from the configuration database which software version the\nterminal is to run, fetches the needed parts of its image over HTTP\nand prepares them for installation.")
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS "fw-download-bin (= ${version}), init-system-helpers (>= 1.54)")
set(CPACK_DEBIAN_SERVICE_PACKAGE_RECOMMENDS "ca-certificates, dbus")
set(debian ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
  ${debian}/conffiles ${debian}/postinst ${debian}/prerm ${debian}/postrm)

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libvex-host)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES libvex1)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS "${base}, libsqlite3-0 (>= 3.40), libsystemd0 (>= 252)")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SUGGESTS dbus)
# Tells other packages' builds which package the library is in.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/shlibs "libvex 1 libvex-host (>= ${version})\n")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/shlibs ${debian}/triggers)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
  "platform library of the terminal, for any Linux\nEvent loop, daemon base, message bus on D-Bus and configuration\ndatabase on SQLite, for machines that have no platform library of\ntheir own.")

set(CPACK_DEBIAN_PLATFORM-DEV_DEBUGINFO_PACKAGE OFF)
set(CPACK_DEBIAN_PLATFORM-DEV_PACKAGE_NAME libvex-host-dev)
set(CPACK_DEBIAN_PLATFORM-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PLATFORM-DEV_PACKAGE_DEPENDS "libvex-host (= ${version})")
set(CPACK_COMPONENT_PLATFORM-DEV_DESCRIPTION
  "headers of the terminal's platform library\nFor building programs against libvex.so.")

set(CPACK_DEBIAN_VEXCTL_PACKAGE_NAME vexctl)
set(CPACK_DEBIAN_VEXCTL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_VEXCTL_PACKAGE_DEPENDS "${base}, libvex-host (>= ${version})")
set(CPACK_COMPONENT_VEXCTL_DESCRIPTION
  "configuration database and bus of the terminal from the command line\nReads and writes the configuration database, and sends and listens to\nsignals on the message bus.")

set(CPACK_DEBIAN_ZEMP_PACKAGE_NAME zemp)
set(CPACK_DEBIAN_ZEMP_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_ZEMP_PACKAGE_DEPENDS "${base}, ${http}, libtomlplusplus3 (>= 3.3.0)${seal}, libvex-host (>= ${version})")
set(CPACK_COMPONENT_ZEMP_DESCRIPTION
  "makes and checks firmware images\nBuilds images from a description, lists, checks and seals them, plans\nupdates, and builds host configuration records.")

set(CPACK_DEBIAN_LAB_PACKAGE_NAME fw-lab)
set(CPACK_DEBIAN_LAB_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_LAB_PACKAGE_DEPENDS
  "${base}, ${http}, bubblewrap, dbus-daemon, fw-download-bin (>= ${version}), libvex-host (>= ${version}), nginx-light")
set(CPACK_COMPONENT_LAB_DESCRIPTION
  "terminal on the desk for the firmware download daemon\nRuns whole updates with a web server, a message bus and a\nconfiguration database of its own, in a private file system.")

foreach(tool VEXCTL ZEMP LAB)
  set(CPACK_DEBIAN_${tool}_PACKAGE_BREAKS fw-download-tools)
  set(CPACK_DEBIAN_${tool}_PACKAGE_REPLACES fw-download-tools)
endforeach()

include(CPack)
