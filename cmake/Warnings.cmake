# The warnings that all of our own code compiles without. The presets make them errors
# (CMAKE_COMPILE_WARNING_AS_ERROR); a build by hand with another compiler only shows them.
add_library(kova_warnings INTERFACE)
target_compile_options(kova_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor)
# Qt's own macros (QSKIP) leave variable arguments out, which clang's -Wpedantic minds.
target_compile_options(kova_warnings INTERFACE
    $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
