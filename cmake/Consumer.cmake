# What a consumer links: kerul_lidar_client and below it two small libraries that the node links too.
# Nothing of it links the node. Headers have one path in the tree and installed, <kerul_lidar/...>;
# those that stand in src/ have a header of one line in client/include that leads to them, and are
# installed in its place (Install.cmake).
set(common_sources)

# kerul_add_common_library(NAME sources...)
function(kerul_add_common_library name)
  list(TRANSFORM ARGN PREPEND "${CMAKE_SOURCE_DIR}/src/")
  add_library(${name} STATIC ${ARGN})
  target_include_directories(
    ${name} PUBLIC "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/client/include>" "$<INSTALL_INTERFACE:include>"
            PRIVATE "${CMAKE_SOURCE_DIR}/src")
  target_link_libraries(${name} PUBLIC "$<BUILD_INTERFACE:kerul_flags>")
  target_compile_features(${name} PUBLIC cxx_std_20)
  set(common_sources ${common_sources} ${ARGN} PARENT_SCOPE)
endfunction()

kerul_add_common_library(kerul_lidar_ring output/bus_error_guard.cpp output/shm_region.cpp)
target_link_libraries(kerul_lidar_ring PUBLIC rt)
kerul_add_common_library(kerul_lidar_geometry calibration/angle_calib.cpp calibration/angle_calib_grid.cpp
                         config/transform_param.cpp files/regular_file.cpp)

file(GLOB client_sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/client/*.cpp")
add_library(kerul_lidar_client STATIC ${client_sources})
target_include_directories(
  kerul_lidar_client PUBLIC "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/client/include>"
                            "$<INSTALL_INTERFACE:include>")
target_compile_features(kerul_lidar_client PUBLIC cxx_std_20)
target_link_libraries(kerul_lidar_client PUBLIC "$<BUILD_INTERFACE:kerul_flags>" kerul_lidar_ring
                                                kerul_lidar_geometry)

# The same for C: a shared library that shows the names of kerul_lidar.h and nothing else. Its sources
# are compiled once more, as position-independent code, so that the node's and the archives' objects
# stay as they are.
add_library(kerul_lidar_c SHARED client/c/kerul_lidar.cpp ${client_sources} ${common_sources})
set_target_properties(
  kerul_lidar_c PROPERTIES OUTPUT_NAME kerul_lidar_client SOVERSION 1 VERSION 1.0.0 EXPORT_NAME c
                           LINK_DEPENDS "${CMAKE_SOURCE_DIR}/client/c/exports.map")
target_compile_definitions(kerul_lidar_c PRIVATE "KERUL_LIDAR_VERSION=\"${PROJECT_VERSION}\"")
target_include_directories(
  kerul_lidar_c PUBLIC "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/client/include>" "$<INSTALL_INTERFACE:include>"
                PRIVATE "${CMAKE_SOURCE_DIR}/src")
target_link_libraries(kerul_lidar_c PRIVATE "$<BUILD_INTERFACE:kerul_flags>" rt)
target_link_options(kerul_lidar_c PRIVATE
                    "-Wl,--version-script,${CMAKE_SOURCE_DIR}/client/c/exports.map")
add_library(kerul_lidar::c ALIAS kerul_lidar_c)

# For tools in the tree the targets have the names that the package gives them.
foreach(part client ring geometry)
  add_library(kerul_lidar::${part} ALIAS kerul_lidar_${part})
  set_target_properties(kerul_lidar_${part} PROPERTIES EXPORT_NAME ${part})
endforeach()

# Headers of src/ take the place of those that lead to them in the tree.
set(kerul_public_headers
    MIPI_reader/parser/point_packet_layout.h calibration/angle_calib.h config/transform_param.h
    files/regular_file.h output/bus_error_guard.h output/shm_layout.h output/shm_region.h
    output/shm_words.h)
list(TRANSFORM kerul_public_headers PREPEND "${CMAKE_SOURCE_DIR}/src/")
file(GLOB client_headers CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/client/include/kerul_lidar/*.h")
foreach(header IN LISTS kerul_public_headers)
  get_filename_component(name "${header}" NAME)
  list(REMOVE_ITEM client_headers "${CMAKE_SOURCE_DIR}/client/include/kerul_lidar/${name}")
endforeach()
list(APPEND kerul_public_headers ${client_headers})
