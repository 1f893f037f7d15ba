# Qt's build tools in a cross build: those of this machine. Debian keeps the tools of Qt 5 outside the
# PATH, where moc may belong to another version of Qt.
find_program(KOVA_HOST_MOC moc PATHS /usr/lib/qt5/bin NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_program(KOVA_HOST_MOC NAMES moc-qt5 moc REQUIRED)
mark_as_advanced(KOVA_HOST_MOC)
if(NOT TARGET Qt5::moc)
    add_executable(Qt5::moc IMPORTED)
    set_target_properties(Qt5::moc PROPERTIES IMPORTED_LOCATION ${KOVA_HOST_MOC})
endif()
