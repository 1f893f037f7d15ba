# What an installation holds, in three components: runtime (the libraries), development (headers,
# CMake package, pkg-config files) and tools (kova-play, the virtual sound card).
include(CMakePackageConfigHelpers)

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/KovaSimplePlayer)
set(pkg_config_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# kova_install_library(TARGET NAME FOLDER header…)
#   Clients know the target as Kova::NAME, and its headers as <FOLDER/…>. The libraries find each
#   other wherever the prefix is.
function(kova_install_library target name folder)
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${target} EXPORT KovaSimplePlayerTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
    install(FILES ${ARGN}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kova/${folder} COMPONENT development)
endfunction()

# kova_install_pkg_config(NAME): NAME.pc is made of NAME.pc.in in the current folder. Its paths count
# from its own folder, so that it stays true when the prefix is moved, unless the folders were chosen
# by absolute paths.
function(kova_install_pkg_config name)
    if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
        set(prefix ${CMAKE_INSTALL_PREFIX})
        set(libdir ${CMAKE_INSTALL_FULL_LIBDIR})
        set(includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
    else()
        file(RELATIVE_PATH prefix_from_here /${pkg_config_folder} /)
        cmake_path(GET prefix_from_here PARENT_PATH prefix_from_here) # no slash at the end
        set(prefix "\${pcfiledir}/${prefix_from_here}")
        set(libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
        set(includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
    endif()
    configure_file(${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${pkg_config_folder} COMPONENT development)
endfunction()

install(EXPORT KovaSimplePlayerTargets NAMESPACE Kova::
    DESTINATION ${cmake_folder} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KovaSimplePlayerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES cmake/KovaSimplePlayerConfig.cmake
    ${PROJECT_BINARY_DIR}/KovaSimplePlayerConfigVersion.cmake
    DESTINATION ${cmake_folder} COMPONENT development)
