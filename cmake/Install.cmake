# What `cmake --install` and the Debian package put where. Targets that are not built are left out.
include(GNUInstallDirs)

foreach(program lidar_node sensor_simulator lidar_view frame_export_info truth_report soak_watch
                lidar_replay lidar_record lidar_web pixel_story)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    list(APPEND kerul_programs ${program})
  endif()
endforeach()

foreach(node IN LISTS KERUL_NODES)
  kerul_install_node("${node}")
endforeach()

# A package of its own: only who wants it installs a DDS.
if(TARGET lidar_dds)
  install(TARGETS lidar_dds RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT dds)
  list(APPEND kerul_programs lidar_dds)
  list(APPEND kerul_packages dds)
endif()

# What a consumer links. Below lib/ itself and not the multiarch folder, as it is static only. A
# component of its own: `cmake --install build --component client` needs these libraries built and
# nothing else.
install(TARGETS kerul_lidar_client kerul_lidar_ring kerul_lidar_geometry EXPORT kerul_lidar
        ARCHIVE DESTINATION lib COMPONENT client)
install(FILES ${kerul_public_headers} DESTINATION include/kerul_lidar COMPONENT client)

# For C: what is linked with it comes with the archives, the library itself alone, as a package of its
# own that programs depend on. It has the archive's name, so C++ consumers name the archive's file.
install(TARGETS kerul_lidar_c EXPORT kerul_lidar_c LIBRARY DESTINATION lib COMPONENT library
                                                           NAMELINK_COMPONENT client)
install(EXPORT kerul_lidar_c NAMESPACE kerul_lidar:: FILE kerul_lidar_cTargets.cmake
        DESTINATION lib/cmake/kerul_lidar COMPONENT client)

include(CMakePackageConfigHelpers)
set(kerul_package "${CMAKE_BINARY_DIR}/package")
configure_package_config_file("${CMAKE_SOURCE_DIR}/packaging/kerul_lidarConfig.cmake.in"
                              "${kerul_package}/kerul_lidarConfig.cmake"
                              INSTALL_DESTINATION lib/cmake/kerul_lidar)
write_basic_package_version_file("${kerul_package}/kerul_lidarConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(EXPORT kerul_lidar NAMESPACE kerul_lidar:: FILE kerul_lidarTargets.cmake
        DESTINATION lib/cmake/kerul_lidar COMPONENT client)
install(FILES "${kerul_package}/kerul_lidarConfig.cmake"
              "${kerul_package}/kerul_lidarConfigVersion.cmake" DESTINATION lib/cmake/kerul_lidar
        COMPONENT client)
set(KERUL_PC_LIBDIR lib)
foreach(pc kerul-lidar-client kerul-lidar-c)
  configure_file("${CMAKE_SOURCE_DIR}/packaging/${pc}.pc.in" "${CMAKE_BINARY_DIR}/${pc}.pc" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/${pc}.pc" DESTINATION lib/pkgconfig COMPONENT client)
endforeach()

# Below /usr, where Debian's interpreter looks.
install(DIRECTORY "${CMAKE_SOURCE_DIR}/client/python/kerul_lidar"
        DESTINATION lib/python3/dist-packages COMPONENT python PATTERN "__pycache__" EXCLUDE)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/client/python/examples"
        DESTINATION share/doc/python3-kerul-lidar COMPONENT python USE_SOURCE_PERMISSIONS
        PATTERN "__pycache__" EXCLUDE)

# Where Wireshark looks for Lua files, whatever its version. Below /usr/local it does not look.
if(KERUL_BUILD_TOOLS)
  install(DIRECTORY "${CMAKE_SOURCE_DIR}/tools/wireshark/kerul_lidar"
          DESTINATION "lib/${CMAKE_LIBRARY_ARCHITECTURE}/wireshark/plugins")
  list(APPEND kerul_programs kerul_lidar_dissector)  # for its page only
endif()

# The server's page and its unit. Whoever installs the package needs nothing that built the page.
if(TARGET lidar_web)
  install(FILES "${CMAKE_SOURCE_DIR}/packaging/kerul-lidar-web.service"
          DESTINATION lib/systemd/system)
endif()
if(TARGET lidar_web_page)
  install(DIRECTORY "${CMAKE_BINARY_DIR}/tools/lidar_web_page/" DESTINATION share/kerul_lidar/page)
endif()

# Man pages, packed as the distribution wants them. A program's page comes with the program.
find_program(gzip_program gzip REQUIRED)
foreach(program IN LISTS kerul_programs)
  file(GLOB page "${CMAKE_SOURCE_DIR}/docs/man/${program}.[1-8]")
  get_filename_component(page_name "${page}" NAME)
  string(REGEX REPLACE ".*\\." "" section "${page_name}")
  set(packed "${CMAKE_BINARY_DIR}/man/${page_name}.gz")
  add_custom_command(
    OUTPUT "${packed}" DEPENDS "${page}" VERBATIM
    COMMAND sh -c "\"$1\" -9nc \"$2\" > \"$3\"" sh "${gzip_program}" "${page}" "${packed}")
  list(APPEND packed_pages "${packed}")
  set(component "")
  if(program STREQUAL "lidar_dds")
    set(component COMPONENT dds)
  endif()
  install(FILES "${packed}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" ${component})
endforeach()
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/man")
set(packed_changelog "${CMAKE_BINARY_DIR}/man/changelog.gz")
add_custom_command(
  OUTPUT "${packed_changelog}" DEPENDS "${CMAKE_SOURCE_DIR}/CHANGELOG.md" VERBATIM
  COMMAND sh -c "\"$1\" -9nc \"$2\" > \"$3\"" sh "${gzip_program}"
          "${CMAKE_SOURCE_DIR}/CHANGELOG.md" "${packed_changelog}")
add_custom_target(kerul_packed_docs ALL DEPENDS ${packed_pages} "${packed_changelog}")

set(kerul_docs "share/doc/kerul-lidar-node")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/docs/" DESTINATION "${kerul_docs}" PATTERN "man" EXCLUDE
        PATTERN "examples" EXCLUDE)
set(kerul_notices "${packed_changelog}" "${CMAKE_SOURCE_DIR}/packaging/copyright")
install(FILES ${kerul_notices} DESTINATION "${kerul_docs}")
install(FILES ${kerul_notices} DESTINATION share/doc/libkerul-lidar-client1
        COMPONENT library_notices)
install(FILES ${kerul_notices} DESTINATION share/doc/python3-kerul-lidar COMPONENT python)
if(TARGET lidar_dds)
  install(FILES ${kerul_notices} DESTINATION share/doc/kerul-lidar-dds COMPONENT dds)
  install(FILES "${CMAKE_SOURCE_DIR}/docs/examples/cyclonedds.xml"
          DESTINATION share/doc/kerul-lidar-dds/examples COMPONENT dds)
endif()

# Both folders are searched below /usr and below /usr/local.
install(FILES "${CMAKE_SOURCE_DIR}/packaging/kerul-lidar-node.service"
        DESTINATION lib/systemd/system)
install(FILES "${CMAKE_SOURCE_DIR}/packaging/60-kerul-lidar.conf" DESTINATION lib/sysctl.d)

# Packages: the node with all programs and what a consumer is built with, the C library, the Python
# package, which needs the library but no node, and the publisher of ROS 2 topics where it was built,
# which needs no node either.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL Unspecified client library library_notices python ${kerul_packages})
set(CPACK_COMPONENT_UNSPECIFIED_GROUP node)
set(CPACK_COMPONENT_CLIENT_GROUP node)
set(CPACK_COMPONENT_LIBRARY_GROUP library)
set(CPACK_COMPONENT_LIBRARY_NOTICES_GROUP library)
set(CPACK_COMPONENT_PYTHON_GROUP python)
set(CPACK_COMPONENT_DDS_GROUP dds)

set(CPACK_PACKAGE_NAME kerul-lidar-node)
set(CPACK_PACKAGE_CONTACT "kerul-lidar-node maintainers <maintainers@kerul-lidar.invalid>")
set(CPACK_COMPONENT_NODE_DESCRIPTION
    "processing node for a solid-state flash LiDAR
Turns the raw histogram windows of the sensor into calibrated, filtered
points and publishes them through shared memory or UDP. Comes with a
simulated sensor, viewers for terminal and browser, a reader for frame
export files, reports that hold the output against the simulated sensor's
truth, and a client library.")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "frames of a solid-state flash LiDAR for programs in C
The shared library with which programs read whole frames of the LiDAR node,
from its shared memory, by UDP or from a pipe.")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "frames of a solid-state flash LiDAR as numpy arrays
Reads whole frames of the LiDAR node from its shared memory, by UDP, or from
a capture file that is played through the node.")
set(CPACK_COMPONENT_DDS_DESCRIPTION
    "frames of a solid-state flash LiDAR as ROS 2 topics
Publishes the frames of the LiDAR node as point clouds and images that every
ROS 2 subscriber of the network finds. Needs no ROS 2.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_NODE_PACKAGE_NAME kerul-lidar-node)
set(CPACK_DEBIAN_NODE_PACKAGE_SECTION science)
set(CPACK_DEBIAN_NODE_PACKAGE_DEPENDS "libkerul-lidar-client1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_NODE_PACKAGE_SUGGESTS "wireshark | tshark")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libkerul-lidar-client1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kerul-lidar)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= 3.9), python3-numpy, libkerul-lidar-client1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS kerul-lidar-node)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-matplotlib)
set(CPACK_DEBIAN_DDS_PACKAGE_NAME kerul-lidar-dds)
set(CPACK_DEBIAN_DDS_PACKAGE_SECTION science)
# Not only its functions: records of the library, which another version may lay out differently.
set(CPACK_DEBIAN_DDS_PACKAGE_DEPENDS "libddsc0debian (>= 0.10), libddsc0debian (<< 0.11)")
set(CPACK_DEBIAN_DDS_PACKAGE_RECOMMENDS kerul-lidar-node)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(kerul_scripts "${CMAKE_SOURCE_DIR}/packaging/debian")
set(CPACK_DEBIAN_NODE_PACKAGE_CONTROL_EXTRA
    "${kerul_scripts}/postinst;${kerul_scripts}/prerm;${kerul_scripts}/postrm")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${kerul_scripts}/library/triggers")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    "${kerul_scripts}/python/postinst;${kerul_scripts}/python/prerm")
include(CPack)
