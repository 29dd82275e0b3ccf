# SPDX-License-Identifier: MIT
# Read by cpack for each generator. dpkg-shlibdeps takes the architecture to
# resolve libraries for (and the objdump to read them with) from the
# environment: the packages' own, so the cross build's arm64 binaries get the
# arm64 libraries' packages.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(ENV{DEB_HOST_ARCH} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
endif()
