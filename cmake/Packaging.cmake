# SPDX-License-Identifier: MIT
# Debian packages: liboutputedidviewmodel (the plug-in, what an integrator
# installs on the device, arm64, or a desktop, amd64),
# liboutputedidviewmodel-probe (the probe that measures a device's host,
# installed beside it for one run), edidsim (the
# simulator with its scenarios, Qt Core only) and edidsim-page (the desktop
# page edidsim loads, with Qt Quick), each with a -dbgsym package holding its
# debugging symbols. `cpack` in a build directory makes them.
# Included after the simulator's targets, which decide what edidsim ships.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(EDIDVM_PACKAGE_MAINTAINER "outputedidviewmodel developers <edidvm@example.invalid>"
    CACHE STRING "Maintainer field of the Debian packages")
set(EDIDVM_DEBIAN_REVISION 1 CACHE STRING "Debian revision of the packages' version")
set(edidvm_deb_version ${PROJECT_VERSION}-${EDIDVM_DEBIAN_REVISION})
set(edidvm_packaging ${PROJECT_SOURCE_DIR}/packaging)
set(edidvm_packaging_out ${PROJECT_BINARY_DIR}/packaging)

# The changelog's latest entry names the version the packages carry.
file(STRINGS ${edidvm_packaging}/changelog changelog_head LIMIT_COUNT 1)
if(NOT changelog_head MATCHES "^outputedidviewmodel \\(${edidvm_deb_version}\\) ")
  message(FATAL_ERROR "packaging/changelog: the latest entry is not version ${edidvm_deb_version}: ${changelog_head}")
endif()

# The licence texts go into the copyright files as DEP-5 continuation lines.
# The shipped EDIDs' licence is packaging's own copy: packaging reads
# nothing from the tests, whose sample EDIDs keep theirs beside them.
file(READ ${edidvm_packaging}/LICENSE.CC-BY-4.0 cc_by)
string(REGEX REPLACE "\n+$" "" cc_by "${cc_by}")
string(REGEX REPLACE "\n[ \t]*\n" "\n.\n" cc_by "${cc_by}")
string(REGEX REPLACE "\n[ \t]*\n" "\n.\n" cc_by "${cc_by}")
string(REGEX REPLACE "[ \t]+\n" "\n" cc_by "${cc_by}")
string(REPLACE "\n" "\n " EDIDVM_CC_BY_4_0_TEXT " ${cc_by}")

# Files gzip -9n makes at build time: the same bytes on every architecture,
# as Multi-Arch: same asks.
configure_file(${edidvm_packaging}/edidsim.1.in ${edidvm_packaging_out}/configured/edidsim.1 @ONLY)
set(gzipped)
foreach(pair changelog:changelog.Debian ${edidvm_packaging_out}/configured/edidsim.1:edidsim.1)
  string(REPLACE ":" ";" pair "${pair}")
  list(GET pair 0 source)
  list(GET pair 1 name)
  if(NOT IS_ABSOLUTE ${source})
    set(source ${edidvm_packaging}/${source})
  endif()
  add_custom_command(OUTPUT ${edidvm_packaging_out}/${name}.gz
    COMMAND ${CMAKE_COMMAND} -E copy ${source} ${edidvm_packaging_out}/${name}
    COMMAND gzip -9nf ${edidvm_packaging_out}/${name}
    DEPENDS ${source} VERBATIM)
  list(APPEND gzipped ${edidvm_packaging_out}/${name}.gz)
endforeach()
add_custom_target(edidvm_package_files ALL DEPENDS ${gzipped})

# Debian's files of one package: copyright, changelog, lintian overrides.
function(edidvm_package_docs component package)
  configure_file(${edidvm_packaging}/${package}.copyright.in ${edidvm_packaging_out}/${package}/copyright @ONLY)
  install(FILES ${edidvm_packaging_out}/${package}/copyright ${edidvm_packaging_out}/changelog.Debian.gz
          DESTINATION share/doc/${package} COMPONENT ${component})
  install(FILES ${edidvm_packaging}/${package}.lintian-overrides DESTINATION share/lintian/overrides
          RENAME ${package} COMPONENT ${component})
endfunction()

install(TARGETS outputedidviewmodel LIBRARY DESTINATION ${EDIDVM_PLUGIN_INSTALL_DIR} COMPONENT plugin)
install(FILES ${EDIDVM_TRANSLATIONS_DIR}/outputedidviewmodel_de.qm
        DESTINATION share/outputedidviewmodel/translations COMPONENT plugin)
edidvm_package_docs(plugin liboutputedidviewmodel)
set(components plugin)
if(TARGET outputedidviewmodel-probe)
  install(TARGETS outputedidviewmodel-probe LIBRARY DESTINATION ${EDIDVM_PLUGIN_INSTALL_DIR} COMPONENT probe)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/probe.md DESTINATION share/doc/liboutputedidviewmodel-probe
          COMPONENT probe)
  edidvm_package_docs(probe liboutputedidviewmodel-probe)
  list(APPEND components probe)
endif()
if(TARGET edidsim)
  install(TARGETS edidsim RUNTIME DESTINATION bin COMPONENT simulator)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/scenarios/ DESTINATION share/edidsim/scenarios COMPONENT simulator)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/messages.md ${PROJECT_SOURCE_DIR}/docs/scenarios.md
                ${PROJECT_SOURCE_DIR}/docs/scenario.schema.json
          ${PROJECT_SOURCE_DIR}/docs/trace.md ${PROJECT_SOURCE_DIR}/docs/trace.schema.json
          DESTINATION share/doc/edidsim COMPONENT simulator)
  install(FILES ${edidvm_packaging_out}/edidsim.1.gz DESTINATION share/man/man1 COMPONENT simulator)
  edidvm_package_docs(simulator edidsim)
  list(APPEND components simulator)
endif()
if(TARGET edidsim_page)
  install(TARGETS edidsim_page LIBRARY DESTINATION ${EDIDVM_PAGE_INSTALL_DIR} COMPONENT page)
  # The page's own texts; edidsim page --lang finds them from the library's.
  install(FILES ${EDIDVM_TRANSLATIONS_DIR}/edidsim_de.qm DESTINATION share/edidsim/translations COMPONENT page)
  edidvm_package_docs(page edidsim-page)
  list(APPEND components page)
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
else()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${EDIDVM_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${EDIDVM_PACKAGE_MAINTAINER}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# gzip: the symbols packages are large, and xz costs the test command half a minute.
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Strip the binaries; their symbols go into <package>-dbgsym. CPack takes the
# toolchain's objcopy (aarch64-linux-gnu-objcopy when cross-building).
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
# Runtime dependencies as dpkg-shlibdeps computes them from the binaries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# At cpack time: dpkg-shlibdeps for the packages' architecture, and
# Debian details CPack does not write (cmake/PackagingPostBuild.cmake).
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/PackagingCPack.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PackagingPostBuild.cmake)
set(CPACK_EDIDVM_MULTIARCH_SAME liboutputedidviewmodel liboutputedidviewmodel-dbgsym
    liboutputedidviewmodel-probe liboutputedidviewmodel-probe-dbgsym)

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME liboutputedidviewmodel)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION "output EDID view model plug-in for the display controller's UI
The view model of the page on which a user inspects and changes the timing
of a display controller's output interfaces (HDMI, DP, DVI, SDI). The host
component framework of the device's user interface loads this plug-in from
a private plug-in directory; it depends on Qt Core only.")
set(CPACK_DEBIAN_PROBE_PACKAGE_NAME liboutputedidviewmodel-probe)
set(CPACK_DEBIAN_PROBE_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PROBE_DESCRIPTION "probe plug-in that measures the display controller's host
A second plug-in, installed beside the output EDID view model plug-in, that
sends only read-only queries and messages to itself, measures how the
device's host delivers messages (copied or lent payloads, threads, nesting,
timing) and writes what it saw as a JSON report. It changes nothing on the
device; remove it after the run.")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME edidsim)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION devel)
set(edidsim_description "desktop simulator for the output EDID view model plug-in
Plays scenario files against the output EDID view model plug-in, loaded as
the display controller's host loads it, with a simulated device, and prints
every message the plug-in exchanges. It also lists the modes of monitor
EDIDs.")
# Loaded with dlopen, so dpkg-shlibdeps cannot see it.
set(edidsim_depends "liboutputedidviewmodel (= ${edidvm_deb_version})")
set(CPACK_DEBIAN_SIMULATOR_DESCRIPTION "${edidsim_description}")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_DEPENDS "${edidsim_depends}")
if(TARGET edidsim_page)
  set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SUGGESTS edidsim-page)
  set(CPACK_DEBIAN_PAGE_PACKAGE_NAME edidsim-page)
  set(CPACK_DEBIAN_PAGE_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_PAGE_DESCRIPTION "desktop page for the output EDID view model simulator
Shows the display controller's timing page on the desktop, driven by the
output EDID view model plug-in on edidsim's simulated device, and draws it
step by step for bug reports (edidsim page). edidsim loads it only for its
page subcommand.")
  # The program that loads it, and the QML modules the page imports at run time.
  string(CONCAT CPACK_DEBIAN_PAGE_PACKAGE_DEPENDS "edidsim (= ${edidvm_deb_version}), qml-module-qtquick2, "
         "qml-module-qtquick-controls2, qml-module-qtquick-layouts, qml-module-qtquick-window2")
endif()
include(CPack)
