# Everything that `cmake --install` puts in place. Each library is a package of its own
# (tarn_core, …, tarn_videoio), so that one companion can be replaced without the others.
include(CMakePackageConfigHelpers)
list(JOIN TARN_FFMPEG_MODULES " " TARN_FFMPEG_REQUIRES)

# tarn_install_package(<library> <folder of its headers>): the package looks for those of our other
# libraries that this one links.
function(tarn_install_package library headers)
    set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/${library})
    # A run path serves only the file that carries it, so each library has one: to its own folder,
    # and to where the companions were found if they are not bundled.
    set_target_properties(${library} PROPERTIES
        INSTALL_RPATH "$ORIGIN" INSTALL_RPATH_USE_LINK_PATH ON)
    install(TARGETS ${library} EXPORT ${library}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(DIRECTORY ${headers}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
    install(EXPORT ${library}Targets NAMESPACE tarn:: DESTINATION ${destination})

    set(TARN_PACKAGE ${library})
    set(TARN_PACKAGE_DEPENDENCIES "")
    get_target_property(linked ${library} LINK_LIBRARIES)
    list(FILTER linked INCLUDE REGEX "^tarn::")
    foreach(dependency IN LISTS linked)
        string(REPLACE "::" "_" dependency ${dependency})
        string(APPEND TARN_PACKAGE_DEPENDENCIES "find_dependency(${dependency})\n")
    endforeach()
    set(template ${PROJECT_SOURCE_DIR}/cmake/${library}Config.cmake.in)
    if(NOT EXISTS ${template})
        set(template ${PROJECT_SOURCE_DIR}/cmake/tarn_companionConfig.cmake.in)
    endif()
    configure_package_config_file(${template} ${PROJECT_BINARY_DIR}/${library}Config.cmake
        INSTALL_DESTINATION ${destination})
    # Before version 1.0 the second number is the one that breaks.
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/${library}ConfigVersion.cmake
        COMPATIBILITY SameMinorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/${library}Config.cmake
                  ${PROJECT_BINARY_DIR}/${library}ConfigVersion.cmake
            DESTINATION ${destination})
endfunction()

# tarn_install_pkg_config(<library>): finds its prefix by where it lies, so the tree can be moved.
function(tarn_install_pkg_config library)
    set(destination ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    # A packager may give these two as absolute paths.
    foreach(folder LIBDIR INCLUDEDIR)
        set(TARN_PC_${folder} ${CMAKE_INSTALL_${folder}})
        if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_${folder}})
            set(TARN_PC_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
        endif()
    endforeach()
    file(RELATIVE_PATH TARN_PREFIX_FROM_PKG_CONFIG
        ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" TARN_PREFIX_FROM_PKG_CONFIG ${TARN_PREFIX_FROM_PKG_CONFIG})
    list(TRANSFORM TARN_COMPANION_NAMES PREPEND "-ltarn_" OUTPUT_VARIABLE companions)
    list(JOIN companions " " TARN_COMPANION_FLAGS)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in
        ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${destination})
endfunction()

if(TARN_COMPANIONS STREQUAL "bundled")
    foreach(name IN LISTS TARN_COMPANION_NAMES)
        tarn_install_package(tarn_${name} ${PROJECT_SOURCE_DIR}/companions/${name}/include)
    endforeach()
endif()

tarn_install_package(tarn_videoio ${PROJECT_SOURCE_DIR}/include)
tarn_install_pkg_config(tarn_videoio)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(TARGET tarn-videoio)
    file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(tarn-videoio PROPERTIES
        INSTALL_RPATH "$ORIGIN/${libraries}" INSTALL_RPATH_USE_LINK_PATH ON)
    install(TARGETS tarn-videoio RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
