# Read when the packages are made: the backend fits the program of the same build only.
set(CPACK_DEBIAN_IPMI_PACKAGE_DEPENDS
  "zelkor-platformd (= ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
