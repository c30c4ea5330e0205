# bench/NAME.cpp is the program bench-NAME, the target `benches` all of them; bench/support/*.cpp is linked to each.
#
# Peers that are installed are linked and announced as QOREVPN_PEER_LMDB, QOREVPN_PEER_BOOST and
# QOREVPN_PEER_REDIS; a program skips one that is missing and says so.

find_path(LMDB_INCLUDE lmdb.h)
find_library(LMDB_LIBRARY lmdb)
find_path(BOOST_INTERPROCESS_INCLUDE boost/interprocess/managed_mapped_file.hpp)
find_path(HIREDIS_INCLUDE hiredis/hiredis.h)
find_library(HIREDIS_LIBRARY hiredis)

add_library(bench-peers INTERFACE)
if(LMDB_INCLUDE AND LMDB_LIBRARY)
  target_compile_definitions(bench-peers INTERFACE QOREVPN_PEER_LMDB=1)
  target_link_libraries(bench-peers INTERFACE ${LMDB_LIBRARY})
endif()
if(BOOST_INTERPROCESS_INCLUDE)
  target_compile_definitions(bench-peers INTERFACE QOREVPN_PEER_BOOST=1)
endif()
if(HIREDIS_INCLUDE AND HIREDIS_LIBRARY)
  target_compile_definitions(bench-peers INTERFACE QOREVPN_PEER_REDIS=1)
  target_link_libraries(bench-peers INTERFACE ${HIREDIS_LIBRARY})
endif()

file(GLOB benchSupport CONFIGURE_DEPENDS bench/support/*.cpp)
add_library(bench-support STATIC ${benchSupport})
target_include_directories(bench-support PUBLIC ${PROJECT_SOURCE_DIR}/bench)
target_link_libraries(bench-support PUBLIC qorevpn bench-peers)

file(GLOB benches CONFIGURE_DEPENDS bench/*.cpp)
add_custom_target(benches)
foreach(source IN LISTS benches)
  cmake_path(GET source STEM name)
  add_executable(bench-${name} ${source})
  add_dependencies(benches bench-${name})
  set_target_properties(bench-${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
  target_link_libraries(bench-${name} PRIVATE bench-support)
endforeach()

# The machines once more, in a shared library as ever, but built against standard maps in place of the flat maps and the
# shared tables: their headers are found in bench/standard first.
set(standardSources ${platformSources} ${moduleSources})
list(FILTER standardSources EXCLUDE REGEX "/platform/Brine/|QorEvpn(Brine|Module)\\.cpp$")
add_library(bench-standard SHARED platform/Brine/Errors.cpp ${standardSources})
target_compile_options(bench-standard PRIVATE -fno-semantic-interposition -fvisibility-inlines-hidden)
target_include_directories(bench-standard PUBLIC
  ${PROJECT_SOURCE_DIR}/bench/standard ${PROJECT_SOURCE_DIR}/bench
  ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR})
set_target_properties(bench-standard PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
add_executable(bench-EventsStandard bench/standard/main.cpp bench/support/Harness.cpp)
target_link_libraries(bench-EventsStandard PRIVATE bench-standard)
set_target_properties(bench-EventsStandard PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
add_dependencies(benches bench-EventsStandard)
