#include "Program.h"

#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>
#include <QtCore/QStandardPaths>
#include <QtTest/QtTest>

class TestCommandLine : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void usageErrors_data();
    void usageErrors();
    void helpOfPlayScriptNeedsNoTools();
    void helpIsAscii();
    void versionIsShown();
    void outputThatCannotBeWrittenFails();
};

void TestCommandLine::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("nothing") << QStringList{} << QByteArray("No item");
    QTest::newRow("no item") << QStringList{"-d", "null"} << QByteArray("No item");
    QTest::newRow("unknown") << QStringList{"--colour", "a"} << QByteArray("'colour'");
    QTest::newRow("value left out") << QStringList{"a", "-d"} << QByteArray("'-d'");
    QTest::newRow("value too many") << QStringList{"--loop=3", "a"} << QByteArray("loop");
    QTest::newRow("empty device") << QStringList{"-d", "", "a"} << QByteArray("--device");
    QTest::newRow("empty token") << QStringList{"-t", "", "a"} << QByteArray("--token");
    QTest::newRow("empty folder") << QStringList{"--graphs=", "a"} << QByteArray("--graphs");
    QTest::newRow("list of item") << QStringList{"--list-devices", "a"} << QByteArray("no items");
    QTest::newRow("input twice") << QStringList{"-", "-"} << QByteArray("only once");
    QTest::newRow("caps alone") << QStringList{"--caps", "audio/x-raw", "a"}
                                << QByteArray("--pipe");
    QTest::newRow("empty pipe") << QStringList{"--pipe", ""} << QByteArray("--pipe");
    QTest::newRow("empty file") << QStringList{"--data", ""} << QByteArray("--data");
    QTest::newRow("check of data")
        << QStringList{"--check", "--data", "a"} << QByteArray("files and web addresses only");
    QTest::newRow("two tasks") << QStringList{"--check", "--list-devices"} << QByteArray("exclude");
    QTest::newRow("folder in a file") << QStringList{"--fake", "--graphs", "one.wav/pictures", "a"}
                                      << QByteArray("another folder");
}

void TestCommandLine::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);

    Program program(arguments);
    QCOMPARE(program.finish(), 2);
    QCOMPARE(program.out, QByteArray());
    QVERIFY2(program.err.contains(message), program.err);
    QVERIFY(program.err.endsWith("kova-play: Try 'kova-play --help'.\n"));
}

void TestCommandLine::helpIsAscii()
{
    Program program({"--help"});
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.out.startsWith("Usage: kova-play [options] ITEM"));
    QVERIFY(isAscii(program.out));
    QCOMPARE(program.err, QByteArray());
}

void TestCommandLine::helpOfPlayScriptNeedsNoTools()
{
    // Only what prints the text: nothing here installs or builds.
    QDir().mkpath(TestProcess::path("bin"));
    for (const char* tool : {"bash", "dirname", "sed"}) {
        QFile::link(QStandardPaths::findExecutable(tool),
                    TestProcess::path(QString("bin/") + tool));
    }
    Program program({});
    program.setProgram("bash");
    program.setArguments({PLAY_SCRIPT, "--help"});
    program.set("PATH", TestProcess::path("bin"));
    QCOMPARE(program.finish(), 0);
    QVERIFY2(program.out.startsWith("usage: scripts/play [OPTION"), program.out);
    QVERIFY(!program.out.contains("set -"));
    QVERIFY2(program.out.contains("--device") || program.out.contains("kova-play.1"), program.out);
    QCOMPARE(program.err, QByteArray());
}

void TestCommandLine::versionIsShown()
{
    Program program({"--version"});
    QCOMPARE(program.finish(), 0);
    QVERIFY(QRegularExpression("^kova-play \\d+\\.\\d+\\.\\d+\n$")
                .match(QString::fromUtf8(program.out))
                .hasMatch());
}

void TestCommandLine::outputThatCannotBeWrittenFails()
{
    Program program({"--fake", "a"});
    program.setStandardOutputFile("/dev/full");
    QCOMPARE(program.finish(), 1);
    QVERIFY(program.err.contains("standard output"));
}

KOVA_TEST(TestCommandLine)
#include "tst_commandline.moc"
