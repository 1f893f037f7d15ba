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

    const auto row = [](const char* name, const QStringList& arguments, const QByteArray& message) {
        QTest::newRow(name) << arguments << message;
    };
    const QByteArray nothing("No item to play was named.");
    const QByteArray empty(" needs a value that is not empty.");
    row("nothing", {}, nothing);
    row("no item", {"-d", "null"}, nothing);
    row("unknown", {"--colour", "a"}, "Unknown option 'colour'.");
    row("value left out", {"a", "-d"}, "Missing value after '-d'.");
    row("value too many", {"--loop=3", "a"}, "Unexpected value after '--loop'.");
    row("empty device", {"-d", "", "a"}, "--device" + empty);
    row("empty token", {"-t", "", "a"}, "--token" + empty);
    row("empty folder", {"--graphs=", "a"}, "--graphs" + empty);
    row("empty caps", {"--caps", "", "-"}, "--caps" + empty);
    row("empty pipe", {"--pipe", ""}, "--pipe" + empty);
    row("empty file", {"--data", ""}, "--data" + empty);
    row("list of item", {"--list-devices", "a"}, "--list-devices takes no items.");
    row("input twice", {"-", "-"}, "Standard input can be played only once.");
    row("caps alone", {"--caps", "audio/x-raw", "a"},
        "--caps says what is written into a pipe: it needs --pipe or the item -.");
    row("check of data", {"--check", "--data", "a"},
        "--check examines files and web addresses only.");
    row("check of input", {"--check", "-"}, "--check examines files and web addresses only.");
    row("two tasks", {"--check", "--list-devices"},
        "--check and --list-devices exclude each other.");
    row("folder in a file", {"--fake", "--graphs", "one.wav/pictures", "a"},
        "one.wav/pictures' cannot be made or written: name another folder");
}

void TestCommandLine::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);

    Program program(arguments);
    QCOMPARE(program.finish(), 2);
    QCOMPARE(program.out, QByteArray());
    QVERIFY2(program.err.startsWith("kova-play: "), program.err);
    QVERIFY2(program.err.endsWith(message + "\nkova-play: Try 'kova-play --help'.\n"), program.err);
    QCOMPARE(program.err.count('\n'), 2);
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
