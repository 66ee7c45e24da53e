# One-line helpers for tests and benchmarks.

# vdp_add_test(name SOURCES a.cpp b.cpp LIBS lib1 lib2)
function(vdp_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "MPLBACKEND=Agg")
endfunction()

# vdp_add_benchmark(name SOURCES a.cpp LIBS lib1)
function(vdp_add_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
endfunction()
