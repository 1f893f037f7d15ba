# find_package(KovaSimplePlayer) finds this. Kova::SimplePlayer is the player library, Kova::Api the
# core API that comes with it.
include(CMakeFindDependencyMacro)
find_dependency(Qt5 5.15 COMPONENTS Core)
include(${CMAKE_CURRENT_LIST_DIR}/KovaFrameworkApi.cmake OPTIONAL)
if(NOT DEFINED KovaSimplePlayer_FOUND OR KovaSimplePlayer_FOUND)
    include(${CMAKE_CURRENT_LIST_DIR}/KovaSimplePlayerTargets.cmake)
endif()
