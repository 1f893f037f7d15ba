# What must be installed to build, and under which target names it is used.
find_package(PkgConfig REQUIRED)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
pkg_check_modules(GSTREAMER REQUIRED IMPORTED_TARGET gstreamer-1.0>=1.14 gstreamer-app-1.0>=1.14)
pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus>=2.0)
