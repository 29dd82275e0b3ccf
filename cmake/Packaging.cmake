# Debian packages: liboutputedidviewmodel (the plug-in, what an integrator
# installs on the device, arm64, or a desktop, amd64) and edidsim (the
# simulator with its scenarios). `cpack` in a build directory makes them.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The multiarch directory, as the distribution's own libraries use.
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(EDIDVM_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
else()
  set(EDIDVM_LIBDIR lib)
endif()

install(TARGETS outputedidviewmodel LIBRARY DESTINATION ${EDIDVM_LIBDIR} COMPONENT plugin)
install(FILES ${EDIDVM_TRANSLATIONS_DIR}/outputedidviewmodel_de.qm
        DESTINATION share/outputedidviewmodel/translations COMPONENT plugin)
set(components plugin)
if(TARGET edidsim)
  install(TARGETS edidsim RUNTIME DESTINATION bin COMPONENT simulator)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/scenarios/ DESTINATION share/edidsim/scenarios COMPONENT simulator)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/messages.md ${PROJECT_SOURCE_DIR}/docs/scenarios.md
          DESTINATION share/doc/edidsim COMPONENT simulator)
  # Installed, the simulator finds the library and scenarios installed beside
  # it, relative to its own directory, wherever the tree is unpacked.
  file(RELATIVE_PATH installed_plugin /bin /${EDIDVM_LIBDIR}/liboutputedidviewmodel.so)
  target_compile_definitions(edidsim PRIVATE
    EDIDVM_INSTALLED_PLUGIN="${installed_plugin}"
    EDIDVM_INSTALLED_SCENARIO="../share/edidsim/scenarios/default.json")
  list(APPEND components simulator)
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
else()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "outputedidviewmodel developers <edidvm@example.invalid>")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME liboutputedidviewmodel)
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION "Output EDID view model plug-in\n The view model of the output-interface timing page, loaded by the host component framework.")
set(CPACK_DEBIAN_PLUGIN_PACKAGE_DEPENDS "libqt5core5a (>= 5.15), libstdc++6 (>= 12), libc6 (>= 2.34)")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME edidsim)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_SIMULATOR_DESCRIPTION "Desktop simulator for the output EDID view model\n Plays scenario files against the plug-in and prints every message it exchanges.")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_DEPENDS
    "liboutputedidviewmodel (= ${PROJECT_VERSION}), libqt5core5a (>= 5.15), libstdc++6 (>= 12), libc6 (>= 2.34)")
include(CPack)
