# Further nodes beside lidar_node, for several sensors on one computer, without touching the tree:
#
#   cmake --preset release -DKERUL_NODES="front=path/front.cpp;rear=path/rear.cpp"
#
# gives lidar_node_front and lidar_node_rear. Each file defines ChangeSettings (src/config/
# node_settings.h); a path is absolute or relative to the tree. Installed with a unit for each.
set(KERUL_NODES "" CACHE STRING "Further nodes: name=file.cpp;name=file.cpp")

function(kerul_add_node entry)
  if(NOT entry MATCHES "^([a-z0-9_]+)=(.+)$")
    message(FATAL_ERROR "KERUL_NODES: \"${entry}\" is not name=file.cpp with a name of a-z, 0-9 and _")
  endif()
  set(name "${CMAKE_MATCH_1}")
  cmake_path(ABSOLUTE_PATH CMAKE_MATCH_2 BASE_DIRECTORY "${CMAKE_SOURCE_DIR}" OUTPUT_VARIABLE file)
  if(NOT EXISTS "${file}")
    message(FATAL_ERROR "KERUL_NODES: there is no file ${file}")
  endif()
  add_executable(lidar_node_${name} "${CMAKE_SOURCE_DIR}/src/main.cpp" "${file}")
  target_link_libraries(lidar_node_${name} PRIVATE kerul_lidar)
  target_compile_definitions(lidar_node_${name} PRIVATE "KERUL_NODE_NAME=\"${name}\"")
endfunction()

# The unit of lidar_node for another program, ring and state directory. Its address list is that of
# the default sensor: another one wants a drop-in.
function(kerul_install_node entry)
  string(REGEX REPLACE "=.*" "" name "${entry}")
  install(TARGETS lidar_node_${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  file(READ "${CMAKE_SOURCE_DIR}/packaging/kerul-lidar-node.service" unit)
  string(REPLACE "Description=Flash LiDAR processing node" "Description=Flash LiDAR processing node ${name}"
                 unit "${unit}")
  string(REPLACE "ExecStart=lidar_node" "ExecStart=lidar_node_${name}" unit "${unit}")
  string(REPLACE "kerul_lidar_udp_shm" "kerul_lidar_udp_shm_${name}" unit "${unit}")
  string(REGEX REPLACE "(StateDirectory=|WorkingDirectory=%S/)kerul-lidar-node" "\\1kerul-lidar-node-${name}"
                       unit "${unit}")
  file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/package/kerul-lidar-node-${name}.service"
       CONTENT "${unit}" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/package/kerul-lidar-node-${name}.service"
          DESTINATION lib/systemd/system)
endfunction()
