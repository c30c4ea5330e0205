# What every target is compiled with: the language, warnings, sanitizers, run paths.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

add_compile_options(
  -Wall -Wextra -Wpedantic
  -Wshadow -Wconversion -Wsign-conversion -Wdouble-promotion
  -Wnon-virtual-dtor -Woverloaded-virtual -Wsuggest-override
  -Wold-style-cast -Wcast-qual -Wcast-align
  -Wformat=2 -Wundef -Wunused -Wextra-semi -Wimplicit-fallthrough
  -Wmissing-declarations -Wredundant-decls)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # GCC 12 reports overlaps inside std::string at -O3 that cannot be (its bug 105651), hence no -Wrestrict.
  add_compile_options(-Wduplicated-cond -Wlogical-op -Wno-restrict)
endif()
# Some presets compile several files at once, which takes less than half the time. Names need not differ for that: where
# two files that have the same name in their unnamed namespaces come together, one of them is listed here. One file's
# names are no shadow on those of another, and what belongs to one file may be part of another type there.
if(CMAKE_UNITY_BUILD)
  add_compile_options(-Wno-shadow $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  set_source_files_properties(agent/tables/BridgeIds.cpp agent/tables/Floods.cpp
    PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endif()
if(QOREVPN_WERROR)
  add_compile_options(-Werror)
endif()

# Assertions and traces name files relative to the source tree, so no build path is in a binary. A compiler cache may
# pass the relative path in place of the absolute one.
file(RELATIVE_PATH sourceFromBuild ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "/$" "" sourceFromBuild "${sourceFromBuild}")
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${sourceFromBuild}/=)

if(QOREVPN_SANITIZE)
  add_compile_options(-fsanitize=${QOREVPN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QOREVPN_SANITIZE})
endif()

# The build tree lays out libraries and program as an install prefix does, so both use the same relative run paths
# and a prefix may be moved.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
file(RELATIVE_PATH libFromBin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
