# The installation has three components: runtime (the libraries), development (headers, CMake package,
# pkg-config files) and tools (kova-play, the virtual sound card). Without KOVA_INSTALL there is none.
include(CMakePackageConfigHelpers)

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/KovaSimplePlayer)
set(pkg_config_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# kova_install_library(TARGET NAME FOLDER header…)
#   Clients use the target as Kova::NAME, in this project as in an installation, and include its
#   headers as <FOLDER/…>. The libraries find each other wherever the prefix is.
function(kova_install_library target name folder)
    add_library(Kova::${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} INSTALL_RPATH "$ORIGIN")
    if(NOT KOVA_INSTALL)
        return()
    endif()
    install(TARGETS ${target} EXPORT KovaSimplePlayerTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
    install(FILES ${ARGN}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kova/${folder} COMPONENT development)
endfunction()

# kova_install_pkg_config(NAME)
#   Configures NAME.pc from NAME.pc.in in the current folder. Its paths are relative to its own folder,
#   so that the prefix can be moved, unless the installation folders are absolute paths.
function(kova_install_pkg_config name)
    if(NOT KOVA_INSTALL)
        return()
    endif()
    if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
        set(prefix ${CMAKE_INSTALL_PREFIX})
        set(libdir ${CMAKE_INSTALL_FULL_LIBDIR})
        set(includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
    else()
        file(RELATIVE_PATH prefix_from_here /${pkg_config_folder} /)
        string(REGEX REPLACE "/$" "" prefix_from_here "${prefix_from_here}")
        set(prefix "\${pcfiledir}/${prefix_from_here}")
        set(libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
        set(includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
    endif()
    configure_file(${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${pkg_config_folder} COMPONENT development)
endfunction()

if(NOT KOVA_INSTALL)
    return()
endif()
install(EXPORT KovaSimplePlayerTargets NAMESPACE Kova::
    DESTINATION ${cmake_folder} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KovaSimplePlayerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES cmake/KovaSimplePlayerConfig.cmake
    ${PROJECT_BINARY_DIR}/KovaSimplePlayerConfigVersion.cmake
    DESTINATION ${cmake_folder} COMPONENT development)
