# Libraries that stand on the link line of libkova_simpleplayer.so without being called: the
# framework's processes expect them to be loaded with the library. KOVA_LINK_UNCALLED=OFF leaves
# them out and saves an integrator who does not need them their loading time.
if(NOT KOVA_LINK_UNCALLED)
    return()
endif()

find_package(Qt5 5.15 REQUIRED COMPONENTS Network DBus)
pkg_check_modules(GSTREAMER_UNCALLED REQUIRED
    gstreamer-base-1.0 gstreamer-audio-1.0 gstreamer-video-1.0 gstreamer-pbutils-1.0)
# As files, and without what they bring along: so they stand behind the libraries that are called,
# but for Qt's core, which programs name themselves. The dynamic linker looks for each symbol in
# this order, and finds most of them sooner.
list(REMOVE_ITEM GSTREAMER_UNCALLED_LINK_LIBRARIES ${GSTREAMER_LINK_LIBRARIES})
target_link_libraries(kova_simpleplayer PRIVATE
    ${GSTREAMER_UNCALLED_LINK_LIBRARIES}
    $<TARGET_FILE:Qt5::DBus> $<TARGET_FILE:Qt5::Network>)

# Debian has some of these; the framework's prefix (CMAKE_PREFIX_PATH) brings the others.
foreach(name IN ITEMS libkova_thrift_api.so libjson-sax.so.1.0 libnanomsg.so.5 libcap.so.2)
    string(MAKE_C_IDENTIFIER KOVA_${name}_LIBRARY variable)
    find_library(${variable} NAMES ${name})
    mark_as_advanced(${variable})
    if(${variable})
        target_link_libraries(kova_simpleplayer PRIVATE ${${variable}})
    else()
        message(STATUS "Not linked, because it is not installed: ${name}")
    endif()
endforeach()

# Without this the toolchain would drop from the library what it does not call.
target_link_options(kova_simpleplayer PRIVATE LINKER:--no-as-needed)
