#include "kit/TestMain.h"

#include "kit/TestProcess.h"

#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

#include <algorithm>
#include <cstdio>
#include <map>

namespace {

using Creator = std::unique_ptr<QObject> (*)();

/// The tests of this program by their names.
std::map<std::string, Creator>& tests()
{
    static std::map<std::string, Creator> all;
    return all;
}

int usage(const char* program)
{
    std::fprintf(stderr, "usage: %s TEST [OPTION...]\nThe tests:\n", program);
    for (const auto& [name, create] : tests()) {
        std::fprintf(stderr, "  %s\n", name.c_str());
    }
    return 2;
}

} // namespace

bool registerTest(const char* file, Creator create)
{
    tests()[QFileInfo(QString::fromLocal8Bit(file)).completeBaseName().toStdString()] = create;
    return true;
}

int main(int argc, char** argv)
{
    const bool isNamed = argc > 1 && tests().count(argv[1]) > 0;
    if (!isNamed && tests().size() != 1) {
        return usage(argv[0]);
    }
    const auto& [name, create] = isNamed ? *tests().find(argv[1]) : *tests().begin();
    if (isNamed) {
        // Qt Test sees the options only.
        std::rotate(argv + 1, argv + 2, argv + argc);
        --argc;
    }

    const TestProcess process;
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QString::fromStdString(name));
    const std::unique_ptr<QObject> test = create();
    trackGstObjects();
    return QTest::qExec(test.get(), argc, argv);
}
