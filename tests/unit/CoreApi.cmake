# The core API of this tree. The framework tests its own.
if(NOT KOVA_USE_FRAMEWORK_API)
    kova_add_test(tst_connect LIBRARIES kova_api)
    kova_add_test(tst_dbglog LIBRARIES kova_api)
    kova_add_test(tst_namedpipe LIBRARIES kova_api)
    # Defines the pipe's functions itself: its meta-object is needed, too.
    kova_add_test(tst_pipecalls LIBRARIES kova_engine_kit)
    target_sources(tst_pipecalls PRIVATE ${PROJECT_SOURCE_DIR}/src/api/core/KovaNamedPipe.h)

    # The programs that tst_connect watches abort. The second is compiled like a release build in
    # every build, as assertions that vanish there would otherwise go unnoticed.
    foreach(program connectcases connectcases_release)
        add_executable(${program} connectcases.cpp)
        target_link_libraries(${program} PRIVATE kova_api kova_warnings)
        add_dependencies(tst_connect ${program})
    endforeach()
    target_compile_options(connectcases_release PRIVATE -DNDEBUG -DQT_NO_DEBUG)
endif()
