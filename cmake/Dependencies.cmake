# The packages that a build needs, and the target names under which they are used.
find_package(PkgConfig REQUIRED)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
if(NOT is_top_level)
    # A project that adds this one may link Kova::SimplePlayer without looking for Qt itself.
    get_target_property(is_global Qt5::Core IMPORTED_GLOBAL)
    if(NOT is_global)
        set_target_properties(Qt5::Core PROPERTIES IMPORTED_GLOBAL ON)
    endif()
endif()
pkg_check_modules(GSTREAMER REQUIRED IMPORTED_TARGET gstreamer-1.0>=1.14 gstreamer-app-1.0>=1.14)
pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus>=2.0)
