# Flags that every target shares. Results must not depend on the compiler: no multiply and add is
# ever contracted into one rounding, and no fast-math flag is ever set.
add_library(kerul_flags INTERFACE)
target_compile_features(kerul_flags INTERFACE cxx_std_20)
target_compile_options(kerul_flags INTERFACE -ffp-contract=off -Wall -Wextra -Wpedantic -Wconversion
                                             -Wshadow)
# A kernel's speed must not depend on the length of what is linked before it: the same code has been
# seen to take a quarter longer at another place within the cache lines.
target_compile_options(kerul_flags INTERFACE -falign-functions=64)
if(KERUL_WARNINGS_AS_ERRORS)
  target_compile_options(kerul_flags INTERFACE -Werror)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(ccache_program ccache)
if(ccache_program AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # What ccache asks for before it serves sources with a precompiled header.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros "${ccache_program}")
endif()

# One test program for each folder below tests/ that holds *_test.cpp files, named after the folder:
# tests/MIPI_reader/parser gives tests_MIPI_reader_parser. Folders further down belong to it too.
# Other .cpp files are its helpers. LIBRARIES are linked to all of them when they exist; the folders
# WITHOUT are passed over. Tests with "AMillionPackets" in their name
# take long; run_tests.sh --all runs them, and ctest -C long -L long. Folders of WITHOUT are passed over.
function(kerul_add_test_folders)
  cmake_parse_arguments(arg "" "" "LIBRARIES;WITHOUT" ${ARGN})
  file(GLOB_RECURSE test_files CONFIGURE_DEPENDS RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" *_test.cpp)
  set(folders)
  foreach(test_file IN LISTS test_files)
    get_filename_component(folder "${test_file}" DIRECTORY)
    string(REGEX REPLACE "^([^/]+/[^/]+)/.*" "\\1" folder "${folder}")
    list(APPEND folders "${folder}")
  endforeach()
  list(REMOVE_DUPLICATES folders)
  list(REMOVE_ITEM folders ${arg_WITHOUT})
  foreach(folder IN LISTS folders)
    string(REPLACE "/" "_" name "tests_${folder}")
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${folder}/*.cpp")
    if(folder STREQUAL "reference")  # a library of its own
      list(FILTER sources INCLUDE REGEX "_test\\.cpp$")
    endif()
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE test_support)
    # Only what is tested is optimised: an optimised test source takes three times as long to
    # compile, and few tests compute much of their own.
    target_compile_options(${name} PRIVATE -O0)
    target_precompile_headers(${name} REUSE_FROM test_support)
    foreach(library IN LISTS arg_LIBRARIES)
      if(TARGET ${library})
        target_link_libraries(${name} PRIVATE ${library})
      endif()
    endforeach()
    # Process-level tests start the programs that were built. Only they are told where, so that the
    # compiler cache serves all other tests in any checkout.
    if(folder MATCHES "^(dds|process|tools)")
      target_compile_definitions(${name} PRIVATE "KERUL_BINARY_DIR=\"${CMAKE_BINARY_DIR}\""
                                                 "KERUL_SOURCE_DIR=\"${CMAKE_SOURCE_DIR}\"")
      foreach(program IN ITEMS lidar_node lidar_node_test_front lidar_node_test_rear sensor_simulator
                               lidar_view frame_export_info truth_report
                               soak_watch lidar_replay pixel_story lidar_dds lidar_record lidar_web)
        if(TARGET ${program})
          add_dependencies(${name} ${program})
        endif()
      endforeach()
    endif()
    # Live runs of whole programs have the machine to themselves.
    set(properties TIMEOUT 600)
    if(folder MATCHES "^(dds|process)$")
      list(APPEND properties RUN_SERIAL TRUE LABELS live)
    endif()
    if(folder STREQUAL "dds")
      list(APPEND properties FIXTURES_REQUIRED ros_decoder)
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_FILTER "-*AMillionPackets*"
                         PROPERTIES ${properties})
  endforeach()
endfunction()
