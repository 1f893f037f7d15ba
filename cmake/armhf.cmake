# Cross builds for 32-bit ARM with Debian's compiler. The sysroot is the one that
# scripts/armhf-sysroot makes. To use another one, such as that of a device, set KOVA_ARMHF_SYSROOT in
# the environment of the first configuration or as a cache variable.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT KOVA_ARMHF_SYSROOT)
    execute_process(
        COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/armhf-sysroot --path
        OUTPUT_VARIABLE KOVA_ARMHF_SYSROOT OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
set(KOVA_ARMHF_SYSROOT ${KOVA_ARMHF_SYSROOT} CACHE PATH "The root folder of armhf headers and libraries")
if(NOT IS_DIRECTORY ${KOVA_ARMHF_SYSROOT}/usr)
    message(FATAL_ERROR "No armhf sysroot in ${KOVA_ARMHF_SYSROOT}: scripts/armhf-sysroot makes it")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KOVA_ARMHF_SYSROOT)
set(CMAKE_SYSROOT ${KOVA_ARMHF_SYSROOT})

# Libraries come from the sysroot, programs from this machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(libraries ${CMAKE_SYSROOT}/usr/lib)
set(ENV{PKG_CONFIG_LIBDIR}
    ${libraries}/arm-linux-gnueabihf/pkgconfig:${libraries}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
unset(libraries)

# Qt's packages would use programs of the sysroot, unless these targets exist already.
set(CMAKE_PROJECT_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/HostTools.cmake)

# Runs the built programs, including tests.
set(CMAKE_CROSSCOMPILING_EMULATOR
    /usr/bin/env KOVA_ARMHF_SYSROOT=${CMAKE_SYSROOT} ${CMAKE_CURRENT_LIST_DIR}/../scripts/armhf-run)
