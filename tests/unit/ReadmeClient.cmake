# The client in the README is a program that must compile, so that it cannot rot.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/README.md)
file(READ ${PROJECT_SOURCE_DIR}/README.md readme)
if(NOT readme MATCHES "```cpp\n(#include <simplePlayer/UriSimplePlayer.h>[^`]*)```")
    message(FATAL_ERROR "README.md has lost its client")
endif()
file(CONFIGURE OUTPUT readmeclient.cpp CONTENT "${CMAKE_MATCH_1}" @ONLY)
add_executable(readmeclient ${CMAKE_CURRENT_BINARY_DIR}/readmeclient.cpp)
target_link_libraries(readmeclient PRIVATE kova_simpleplayer Qt5::Core kova_warnings)
