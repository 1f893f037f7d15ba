# Debian packages, one for each component of an installation and one of debugging symbols; scripts/packages makes them.
set(KOVA_PACKAGE_MAINTAINER "kova developers <developers@kova.example>"
    CACHE STRING "Who answers for the Debian packages: name <address>")

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/changelog)
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/changelog newest_change LIMIT_COUNT 1)
if(NOT newest_change MATCHES "\\(${PROJECT_VERSION}\\)")
    message(FATAL_ERROR "packaging/changelog does not begin with version ${PROJECT_VERSION}")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT ${KOVA_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development tools debug)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian-files.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE kova-simpleplayer)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

# The libraries that a binary needs lead to the packages it depends on. Our own are not yet in any
# package: CPACK_COMPONENT_*_DEPENDS names those.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
if(CMAKE_SYSROOT)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
        ${CMAKE_SYSROOT}/usr/${CMAKE_INSTALL_LIBDIR} ${CMAKE_SYSROOT}/${CMAKE_INSTALL_LIBDIR})
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkova-simpleplayer)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# No library leads to the elements that a pipeline is made of.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "gstreamer1.0-alsa, gstreamer1.0-plugins-base")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "ca-certificates, glib-networking, gstreamer1.0-plugins-good")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "gstreamer1.0-libav")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "player of single audio items for Qt 5 applications
A program makes one player object for a file, a web address, sound in memory
or a named pipe, starts, pauses or stops it, and learns from one Qt signal
whether the item ended, was stopped or failed. GStreamer decodes, ALSA plays.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkova-simpleplayer-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "qtbase5-dev (>= 5.15)")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "player of single audio items (development files)
What a program needs to be built with libkova-simpleplayer: the headers, a
CMake package and files for pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kova-play)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "command-line player of audio items, and a virtual sound card
kova-play plays files, web addresses, standard input and named pipes through
libkova-simpleplayer, and checks whether a machine has all that this needs. The
virtual sound card is an ALSA plug-in that plays without any hardware and can
record what is played, so that playback can be checked anywhere.")

# CPack's own packages of debugging symbols name the folders of the machine that made them.
install(DIRECTORY DESTINATION lib/debug COMPONENT debug EXCLUDE_FROM_ALL)
set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME kova-simpleplayer-dbgsym)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION debug)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DEBUG_DEPENDS runtime)
set(CPACK_DEBIAN_DEBUG_PACKAGE_ENHANCES kova-play)
set(CPACK_DEBIAN_DEBUG_DESCRIPTION "player of single audio items (debugging symbols)
What a debugger needs to show the sources and the variables of the packages
libkova-simpleplayer and kova-play.")

include(CPack)
