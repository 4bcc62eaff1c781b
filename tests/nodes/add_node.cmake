# cmake -D entry=... -P: what kerul_add_node says of an entry that it refuses.
set(CMAKE_SOURCE_DIR "${CMAKE_CURRENT_LIST_DIR}/../..")
include("${CMAKE_SOURCE_DIR}/cmake/Nodes.cmake")
kerul_add_node("${entry}")
