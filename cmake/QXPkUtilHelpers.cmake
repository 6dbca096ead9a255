# One line per unit test or benchmark: qxpkutil_add_test(QXPeakTable_test) builds
# QXPeakTable_test.cpp in the calling folder against the library and GoogleTest.
function(qxpkutil_add_test name)
  if(NOT QXPKUTIL_BUILD_TESTS)
    return()
  endif()
  add_executable(${name} ${name}.cpp ${ARGN})
  target_link_libraries(${name} PRIVATE qxpkutil qxpkutil_testing GTest::gtest GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
endfunction()

# qxpkutil_add_benchmark(QXDataExpUtils_bench) builds QXDataExpUtils_bench.cpp with Google Benchmark.
function(qxpkutil_add_benchmark name)
  if(NOT QXPKUTIL_BUILD_BENCHMARKS)
    return()
  endif()
  add_executable(${name} ${name}.cpp ${ARGN})
  target_link_libraries(${name} PRIVATE qxpkutil qxpkutil_testing benchmark::benchmark benchmark::benchmark_main)
endfunction()
