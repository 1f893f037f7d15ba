# CPack runs this on the installed files before they become packages.

# Moves the debugging information of a program or library to where debuggers look for it, which is
# told by the build's own number.
function(split_debugging_information binary folder)
    execute_process(COMMAND ${CPACK_READELF_EXECUTABLE} -n ${binary}
        OUTPUT_VARIABLE notes ERROR_QUIET)
    if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
        return() # a script
    endif()
    set(debug ${folder}/.build-id/${CMAKE_MATCH_1}/${CMAKE_MATCH_2}.debug)
    cmake_path(GET debug PARENT_PATH parent)
    file(MAKE_DIRECTORY ${parent})
    execute_process(
        COMMAND ${CPACK_OBJCOPY_EXECUTABLE} --only-keep-debug --compress-debug-sections
            ${binary} ${debug}
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process(
        COMMAND ${CPACK_OBJCOPY_EXECUTABLE} --strip-unneeded --remove-section=.comment
            --add-gnu-debuglink=${debug} ${binary}
        COMMAND_ERROR_IS_FATAL ANY)
    file(CHMOD ${debug} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

# Adds what Debian wants to find in each package, and compresses what it wants compressed.
function(add_documents package share)
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog
        DESTINATION ${share}/doc/${package})
    set(overrides ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides/${package})
    if(EXISTS ${overrides})
        file(COPY ${overrides} DESTINATION ${share}/lintian/overrides)
    endif()
    file(GLOB documents ${share}/doc/${package}/changelog ${share}/man/man*/*)
    execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(installed ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
file(GLOB_RECURSE binaries ${installed}/runtime/*.so ${installed}/tools/*.so
    ${installed}/tools/usr/bin/*)
foreach(binary IN LISTS binaries)
    split_debugging_information(${binary} ${installed}/debug/usr/lib/debug)
endforeach()
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    add_documents(${CPACK_DEBIAN_${name}_PACKAGE_NAME} ${installed}/${component}/usr/share)
endforeach()
