# The core API of this tree. The framework tests its own.
if(NOT KOVA_USE_FRAMEWORK_API)
    kova_add_test(tst_dbglog LIBRARIES kova_api)
    kova_add_test(tst_namedpipe LIBRARIES kova_api)
endif()
