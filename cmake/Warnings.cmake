# Warnings for all of our own code. The presets make them errors (CMAKE_COMPILE_WARNING_AS_ERROR); a
# build without a preset only prints them.
add_library(kova_warnings INTERFACE)
target_compile_options(kova_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor)
# Qt's own macros (QSKIP) omit variable arguments, which clang's -Wpedantic reports.
target_compile_options(kova_warnings INTERFACE
    $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)

# kova_count_lines(TARGET): with KOVA_COVERAGE, the target counts how often each of its lines is executed.
function(kova_count_lines target)
    if(KOVA_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
        target_link_options(${target} PUBLIC --coverage)
    endif()
endfunction()
