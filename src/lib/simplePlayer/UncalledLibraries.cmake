# Libraries on the link line of libkova_simpleplayer.so that it never calls: the framework's
# processes expect them to be loaded with the library.
#
#   KOVA_LINK_UNCALLED=ON        links those that are installed and reports the others
#   KOVA_LINK_UNCALLED=REQUIRED  fails when one is missing: for builds that go onto a device
#   KOVA_LINK_UNCALLED=OFF       links none of them, which shortens the loading of the library
set(values ON REQUIRED OFF)
set_property(CACHE KOVA_LINK_UNCALLED PROPERTY STRINGS ${values})
if(NOT KOVA_LINK_UNCALLED IN_LIST values)
    message(FATAL_ERROR "KOVA_LINK_UNCALLED is ON, REQUIRED or OFF, not \"${KOVA_LINK_UNCALLED}\"")
endif()
if(KOVA_LINK_UNCALLED STREQUAL "OFF")
    return()
endif()

find_package(Qt5 5.15 REQUIRED COMPONENTS Network DBus)
pkg_check_modules(GSTREAMER_UNCALLED REQUIRED
    gstreamer-base-1.0 gstreamer-audio-1.0 gstreamer-video-1.0 gstreamer-pbutils-1.0)
# As files and without their own dependencies, so that they follow the called libraries (except Qt
# Core, which programs link themselves). The dynamic linker searches libraries in this order and
# finds most symbols early.
list(REMOVE_ITEM GSTREAMER_UNCALLED_LINK_LIBRARIES ${GSTREAMER_LINK_LIBRARIES})
target_link_libraries(kova_simpleplayer PRIVATE
    ${GSTREAMER_UNCALLED_LINK_LIBRARIES}
    $<TARGET_FILE:Qt5::DBus> $<TARGET_FILE:Qt5::Network>)

# Debian has the last two; the framework's prefix (CMAKE_PREFIX_PATH) has the others.
set(missing "")
foreach(name IN ITEMS libkova_thrift_api.so libjson-sax.so.1.0 libnanomsg.so.5 libcap.so.2)
    string(MAKE_C_IDENTIFIER KOVA_${name}_LIBRARY variable)
    find_library(${variable} NAMES ${name})
    mark_as_advanced(${variable})
    if(${variable})
        target_link_libraries(kova_simpleplayer PRIVATE ${${variable}})
    else()
        list(APPEND missing ${name})
    endif()
endforeach()
string(REPLACE ";" ", " missing "${missing}")
if(missing AND KOVA_LINK_UNCALLED STREQUAL "REQUIRED")
    message(FATAL_ERROR "KOVA_LINK_UNCALLED=REQUIRED, but these libraries are missing: ${missing}")
elseif(missing)
    message(STATUS "Not linked, because they are not installed: ${missing}")
endif()

# Otherwise the toolchain would drop the libraries that are not called.
target_link_options(kova_simpleplayer PRIVATE LINKER:--no-as-needed)
