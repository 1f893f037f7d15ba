# CPack runs this on the installed files before they become packages.

# run(COMMAND…): runs a command; the packaging ends when it fails.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE status)
    if(status)
        message(FATAL_ERROR "failed with ${status}: ${ARGV}")
    endif()
endfunction()

# Moves the debugging information of a program or library to the folder where debuggers look for it by
# its build ID.
function(split_debugging_information binary folder)
    execute_process(COMMAND ${CPACK_READELF_EXECUTABLE} -n ${binary}
        OUTPUT_VARIABLE notes ERROR_QUIET)
    if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
        return() # a script
    endif()
    set(debug ${folder}/.build-id/${CMAKE_MATCH_1}/${CMAKE_MATCH_2}.debug)
    get_filename_component(parent ${debug} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    run(${CPACK_OBJCOPY_EXECUTABLE} --only-keep-debug --compress-debug-sections ${binary} ${debug})
    run(${CPACK_OBJCOPY_EXECUTABLE} --strip-unneeded --remove-section=.comment
        --add-gnu-debuglink=${debug} ${binary})
    file(CHMOD ${debug} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

# Adds the documents that Debian requires in each package, and compresses them.
function(add_documents package share)
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog
        DESTINATION ${share}/doc/${package})
    set(overrides ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides/${package})
    if(EXISTS ${overrides})
        file(COPY ${overrides} DESTINATION ${share}/lintian/overrides)
    endif()
    file(GLOB documents ${share}/doc/${package}/changelog ${share}/man/man*/*)
    run(gzip -9n ${documents})
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
