# bench/NAME.cpp is the program bench-NAME, the target `benches` all of them; bench/support/*.cpp is linked to each.
#
# Peers that are installed are linked, and QOREVPN_PEER_LMDB, QOREVPN_PEER_BOOST and QOREVPN_PEER_REDIS say which these
# are: the rows of one that is missing are left out.

find_path(LMDB_INCLUDE lmdb.h)
find_library(LMDB_LIBRARY lmdb)
find_path(BOOST_INCLUDE boost/interprocess/managed_mapped_file.hpp)
find_path(REDIS_INCLUDE hiredis/hiredis.h)
find_library(REDIS_LIBRARY hiredis)
set(BOOST_LIBRARY "")

add_library(bench-peers INTERFACE)
foreach(peer LMDB BOOST REDIS)
  if("${${peer}_INCLUDE};${${peer}_LIBRARY}" MATCHES NOTFOUND)
    message(WARNING "The benchmarks leave out ${peer}, which is not installed.")
    target_compile_definitions(bench-peers INTERFACE QOREVPN_PEER_${peer}=0)
  else()
    target_compile_definitions(bench-peers INTERFACE QOREVPN_PEER_${peer}=1)
    target_link_libraries(bench-peers INTERFACE ${${peer}_LIBRARY})
  endif()
endforeach()

file(GLOB benchSupport CONFIGURE_DEPENDS bench/support/*.cpp)
add_library(bench-support STATIC ${benchSupport})
target_include_directories(bench-support PUBLIC ${PROJECT_SOURCE_DIR}/bench)
target_link_libraries(bench-support PUBLIC qorevpn bench-peers)

file(GLOB benches CONFIGURE_DEPENDS bench/*.cpp)
if(NOT TARGET qorevpn-agent)
  list(FILTER benches EXCLUDE REGEX "/Feed\\.cpp$")
endif()
if(NOT TARGET qorevpn-adapters)
  list(FILTER benches EXCLUDE REGEX "/(Live|Switches)\\.cpp$")
endif()
add_custom_target(benches)
foreach(source IN LISTS benches)
  cmake_path(GET source STEM name)
  add_executable(bench-${name} ${source})
  add_dependencies(benches bench-${name})
  set_target_properties(bench-${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
  target_link_libraries(bench-${name} PRIVATE bench-support)
endforeach()

# The program as people run it.
if(TARGET bench-Feed)
  target_compile_definitions(bench-Feed PRIVATE QOREVPN_PROGRAM="$<TARGET_FILE:qorevpn-agent>")
  add_dependencies(bench-Feed qorevpn-agent)
endif()

# Live sources take servers, which the tests can start.
if(TARGET qorevpn-adapters)
  find_package(GTest REQUIRED)
  foreach(name Live Switches)
    target_sources(bench-${name} PRIVATE tests/support/Gobgpd.cpp tests/support/Database.cpp
      tests/support/Child.cpp tests/support/Paths.cpp)
    target_include_directories(bench-${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests)
    target_compile_definitions(bench-${name} PRIVATE QOREVPN_SOURCE_DIR="" QOREVPN_PROGRAM="" QOREVPN_MODULE="")
    target_link_libraries(bench-${name} PRIVATE qorevpn-agent-parts GTest::gtest)
  endforeach()
endif()

# The machines once more, in a shared library as ever, but on another platform: bench/substitutes has a header of the
# same path for the flat map and for the shared tables, over standard maps, and is searched first. Its main.cpp does not
# compile where it did not get them.
set(standardSources ${platformSources} ${moduleSources})
list(FILTER standardSources EXCLUDE REGEX "/platform/Brine/|QorEvpn(Brine|Module)\\.cpp$")
add_library(bench-standard SHARED platform/Brine/Errors.cpp ${standardSources})
target_compile_options(bench-standard PRIVATE -fno-semantic-interposition -fvisibility-inlines-hidden)
target_include_directories(bench-standard PUBLIC
  ${PROJECT_SOURCE_DIR}/bench/substitutes ${PROJECT_SOURCE_DIR}/bench
  ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR})
set_target_properties(bench-standard PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
add_executable(bench-EventsStandard bench/substitutes/main.cpp bench/support/Harness.cpp)
target_link_libraries(bench-EventsStandard PRIVATE bench-standard)
set_target_properties(bench-EventsStandard PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
add_dependencies(benches bench-EventsStandard)
