#ifndef KIT_TEST_MAIN_H
#define KIT_TEST_MAIN_H

#include <QtCore/QObject>

#include <memory>

/// Registers a Qt Test class with the test program.
/// @param file   the source file; its name without suffix is the name of the test
/// @param create makes the class, after QCoreApplication and before GStreamer is initialised, whose
///               environment its constructor may still change
bool registerTest(const char* file, std::unique_ptr<QObject> (*create)());

/// Makes a class a test of the program that this file is compiled into. One program holds the tests
/// of a whole folder; `PROGRAM TEST [OPTION…]` runs one of them with the options of Qt Test.
#define KOVA_TEST(TestClass)                                                                       \
    [[maybe_unused]] static const bool isRegistered = registerTest(                                \
        __FILE__, []() -> std::unique_ptr<QObject> { return std::make_unique<TestClass>(); });

#endif
