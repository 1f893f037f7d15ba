# Package configuration for find_package(KovaSimplePlayer). The targets are Kova::SimplePlayer, the
# player library, and Kova::Api, its core API library.
include(CMakeFindDependencyMacro)
find_dependency(Qt5 5.15 COMPONENTS Core)
include(${CMAKE_CURRENT_LIST_DIR}/KovaFrameworkApi.cmake OPTIONAL)
if(NOT DEFINED KovaSimplePlayer_FOUND OR KovaSimplePlayer_FOUND)
    include(${CMAKE_CURRENT_LIST_DIR}/KovaSimplePlayerTargets.cmake)
endif()
