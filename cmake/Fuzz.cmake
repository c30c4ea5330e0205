# fuzz/NAME.cpp is the libFuzzer program fuzz-NAME. As a test it replays the committed corpus
# fuzz/corpus/NAME/ and then tries a bounded number of inputs of its own; run it by hand for longer.

if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
  message(FATAL_ERROR "QOREVPN_FUZZ needs Clang (libFuzzer)")
endif()

file(GLOB fuzzers CONFIGURE_DEPENDS fuzz/*.cpp)
foreach(source IN LISTS fuzzers)
  cmake_path(GET source STEM name)
  add_executable(fuzz-${name} ${source})
  set_target_properties(fuzz-${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/fuzz)
  target_include_directories(fuzz-${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(fuzz-${name} PRIVATE $<TARGET_NAME_IF_EXISTS:qorevpn-agent-parts> qorevpn)

  # New inputs go to the first folder, in the build tree; findings go to the second.
  set(work ${PROJECT_BINARY_DIR}/fuzz/${name})
  file(MAKE_DIRECTORY ${work}/corpus ${work}/findings)
  set(committed ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  if(NOT IS_DIRECTORY ${committed})
    set(committed "")
  endif()
  add_test(NAME fuzz-${name} COMMAND fuzz-${name}
    -runs=20000 -max_total_time=20 -timeout=10 -artifact_prefix=${work}/findings/ ${work}/corpus ${committed})
endforeach()
