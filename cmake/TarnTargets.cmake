# What every target of ours has in common.

# tarn_find_package(<package> <target>): the target, in the sight of a project around ours as well,
# which needs it to link our targets. What that project has found already is taken as it is.
macro(tarn_find_package package target)
    if(NOT TARGET ${target})
        find_package(${package} REQUIRED)
        set_target_properties(${target} PROPERTIES IMPORTED_GLOBAL ON)
    endif()
endmacro()

# tarn_target_defaults(<target>): language level, warnings, sanitizers.
function(tarn_target_defaults target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(TARN_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(TARN_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${TARN_SANITIZE}
            -fno-omit-frame-pointer -fno-sanitize-recover=all)
        # With a sanitizer g++ sees uninitialised values in a std::optional that has none.
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
        endif()
        target_link_options(${target} PUBLIC -fsanitize=${TARN_SANITIZE})
    endif()
    if(TARN_BUILD_FUZZ)
        # Without it the fuzzer sees none of the paths through the libraries.
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
    if(TARN_COVERAGE)
        target_link_options(${target} PUBLIC --coverage)
    endif()
endfunction()

# tarn_measured(<target>): counts which of its lines run, where TARN_COVERAGE asks for it. For what is
# under test, the libraries and the program: the tests are compiled as without, so that ccache has them.
# Not optimised, because then a line may stand for several.
function(tarn_measured target)
    if(TARN_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage -O0)
    endif()
endfunction()

# tarn_test_defaults(<target>): for programs of tests. Sanitizers more than double the time that it
# takes to optimise them, and what is under test lies in the libraries.
function(tarn_test_defaults target)
    tarn_target_defaults(${target})
    if(TARN_SANITIZE)
        target_compile_options(${target} PRIVATE -O0)
    endif()
endfunction()

# tarn_hidden(<target>): a shared library made of it shows only what the headers mark.
function(tarn_hidden target)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    tarn_measured(${target})
endfunction()

# tarn_shared_library(<target> <alias>): hidden by default, versioned.
function(tarn_shared_library target alias)
    tarn_target_defaults(${target})
    tarn_hidden(${target})
    add_library(tarn::${alias} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        EXPORT_NAME ${alias})
    if(UNIX AND NOT APPLE)
        set(exports ${PROJECT_SOURCE_DIR}/cmake/tarn_exports.map)
        target_link_options(${target} PRIVATE LINKER:--version-script=${exports})
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${exports})
    endif()
endfunction()
