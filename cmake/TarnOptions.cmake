# Every switch of the build, in one place.
option(TARN_BUILD_TESTS "Build the test suite (needs GoogleTest)" ${PROJECT_IS_TOP_LEVEL_})
option(TARN_BUILD_TOOLS "Build the command-line program (needs CLI11)" ${PROJECT_IS_TOP_LEVEL_})
option(TARN_BUILD_EXAMPLES "Build the example programs" ${PROJECT_IS_TOP_LEVEL_})
option(TARN_BUILD_BENCH "Build the benchmarks (needs Google Benchmark)" OFF)
option(TARN_BUILD_FUZZ "Build the libFuzzer targets (needs clang)" OFF)
option(TARN_TESTING "Build tarn_videoio_testing, the static library with everything visible"
       ${TARN_BUILD_TESTS})
option(TARN_WARNINGS_AS_ERRORS "Treat warnings in our own code as errors" ${PROJECT_IS_TOP_LEVEL_})
option(TARN_INSTALL "Install the libraries and their packages" ${PROJECT_IS_TOP_LEVEL_})
set(TARN_COMPANIONS "bundled" CACHE STRING "bundled: build the companions; system: find_package(tarn_core), …")
set_property(CACHE TARN_COMPANIONS PROPERTY STRINGS bundled system)
set(TARN_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize, such as address,undefined or thread")
option(TARN_COVERAGE "Instrument for coverage" OFF)
