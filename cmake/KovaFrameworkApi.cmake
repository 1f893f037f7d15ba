# The framework's own core API as the targets kova_api and Kova::Api. A build with
# KOVA_USE_FRAMEWORK_API installs this file instead of a core API.
find_library(KOVA_API_LIBRARY NAMES kova_api)
find_path(KOVA_API_INCLUDE_DIR core/kova.h PATH_SUFFIXES kova)
mark_as_advanced(KOVA_API_LIBRARY KOVA_API_INCLUDE_DIR)
if(NOT KOVA_API_LIBRARY OR NOT KOVA_API_INCLUDE_DIR)
    set(missing "The framework's core API is missing: libkova_api.so or core/kova.h")
    if(NOT CMAKE_FIND_PACKAGE_NAME)
        message(FATAL_ERROR ${missing})
    endif()
    # find_package() of the client decides whether this is an error.
    set(${CMAKE_FIND_PACKAGE_NAME}_FOUND FALSE)
    set(${CMAKE_FIND_PACKAGE_NAME}_NOT_FOUND_MESSAGE ${missing})
elseif(NOT TARGET kova_api)
    add_library(kova_api SHARED IMPORTED GLOBAL)
    set_target_properties(kova_api PROPERTIES
        IMPORTED_LOCATION ${KOVA_API_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${KOVA_API_INCLUDE_DIR}
        INTERFACE_LINK_LIBRARIES Qt5::Core)
    add_library(Kova::Api ALIAS kova_api)
endif()
