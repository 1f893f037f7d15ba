# The environment that every test runs in. What does not depend on the build (registry, locale,
# temporary folder) is set by the test process itself, so that a test started by hand runs alike.
set(KOVA_TEST_ENVIRONMENT "")
if(KOVA_SANITIZER STREQUAL "asan")
    # GLib's slices would hide small blocks from the sanitizer.
    list(APPEND KOVA_TEST_ENVIRONMENT
        "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1"
        "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_LIST_DIR}/lsan.supp:print_suppressions=0"
        "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
        "G_SLICE=always-malloc")
elseif(KOVA_SANITIZER STREQUAL "tsan")
    # Debian's Qt, GLib and GStreamer are not instrumented: their own synchronisation is invisible,
    # so races are only reported where our own code takes part.
    list(APPEND KOVA_TEST_ENVIRONMENT
        "TSAN_OPTIONS=ignore_noninstrumented_modules=1:halt_on_error=1:second_deadlock_stack=1")
endif()

# Memcheck fails a test for an invalid access and for lost memory, to which no pointer remains.
if(KOVA_MEMCHECK)
    find_program(VALGRIND_PROGRAM valgrind)
    if(NOT VALGRIND_PROGRAM)
        message(STATUS "Without the tests under memcheck, because valgrind is not installed")
        set(KOVA_MEMCHECK OFF)
        return()
    endif()
    set(KOVA_VALGRIND ${VALGRIND_PROGRAM} --quiet --error-exitcode=99
        --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite
        --suppressions=${CMAKE_CURRENT_SOURCE_DIR}/valgrind.supp)
endif()
