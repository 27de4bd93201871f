# What every program of tests has in common.

# Its own package, for CMake's search module does not know GMock before CMake 3.20.
find_package(GTest REQUIRED CONFIG)
include(GoogleTest)

# Owns the headers of GoogleTest, which take as long to compile as a small test: compiled once here for
# all programs. It is a program itself because the options of a library's code are others.
add_executable(tarn_test_headers ${CMAKE_CURRENT_LIST_DIR}/testHeaders.cpp)
tarn_test_defaults(tarn_test_headers)
target_link_libraries(tarn_test_headers PRIVATE GTest::gmock GTest::gtest)
target_precompile_headers(tarn_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

# tarn_test_program(<target>): for programs whose sources include GoogleTest.
function(tarn_test_program target)
    tarn_test_defaults(${target})
    target_precompile_headers(${target} REUSE_FROM tarn_test_headers)
endfunction()

# tarn_room(<room> <target>...): what `scripts/test ROOM` builds. It runs the tests of that label.
function(tarn_room room)
    if(NOT TARGET tarn_room_${room})
        add_custom_target(tarn_room_${room})
    endif()
    add_dependencies(tarn_room_${room} ${ARGN})
endfunction()

# tarn_discover_tests(<target> <room> [TIMEOUT <seconds>]): each test of a program becomes one of ctest,
# named by what the test calls its values: GoogleTest prints a struct as bytes, pointers among them.
function(tarn_discover_tests target room)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" TIMEOUT "")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    gtest_discover_tests(${target} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS ${room})
    tarn_room(${room} ${target})
    set_property(GLOBAL APPEND_STRING PROPERTY TARN_TEST_PROGRAMS "${room} $<TARGET_FILE:${target}>\n")
endfunction()

# tarn_list_test_programs(): writes what scripts/run-whole reads, a room and a program a line.
function(tarn_list_test_programs)
    get_property(programs GLOBAL PROPERTY TARN_TEST_PROGRAMS)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/test-programs.txt CONTENT "${programs}")
endfunction()
