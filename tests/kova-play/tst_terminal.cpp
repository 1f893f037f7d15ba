#include "Program.h"

#include "kit/FifoWriter.h"
#include "kit/Media.h"
#include "kit/PipeWriter.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <csignal>

class TestTerminal : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void keysPauseResumeStopAndQuit();
    void pauseReachesTheDevice();
    void liveLineGoesBeforeTheOutcome();
    void clockStandsWhilePaused();
    void functionKeysDoNothing();
    void liveLineFitsTerminal();
    void liveLineOfSeveralItems();
    void logLinesDoNotRunIntoLiveLine();
    void liveLineShowsFailing();
    void dumbTerminalGetsPlainOutput_data();
    void dumbTerminalGetsPlainOutput();
    void nothingRunsIntoTheOutputOfAPipeline();
    void errorsInAFileNeedNoTerminal();
    void keysWorkWithErrorsInAFile();
    void liveLineShowsMissingData();
    void liveLineShowsStalledCard();
    void resultsGoToStandardOutputOnly();
    void terminalHasItsModeBack_data();
    void terminalHasItsModeBack();
    void secondInterruptRestoresTerminal();
    void suspendedProgramGivesTerminalBack();
    void backgroundProgramLeavesTerminalAlone();
    void lostTerminalDoesNotEndIgnoringProgram();
};

void TestTerminal::keysPauseResumeStopAndQuit()
{
    TerminalProgram program({"--fake", "--loop", "a", "b", "c"});
    program.begin();
    QVERIFY(program.waitForText("[1/3] a  playing  0:0"));
    QVERIFY(program.givesSingleKeys());
    program.type(" ");
    QVERIFY(program.waitForText("[1/3] a  paused  0:"));
    program.type(" ");
    QVERIFY(program.waitForText("[1/3] a  playing  0:"));
    program.type("s");
    QVERIFY(program.waitForText("\r\033[Kstopped a\r\n"));
    QVERIFY(program.waitForText("[2/3] b  playing  0:0"));
    program.type("q");
    QVERIFY(program.waitForText("\r\033[Kstopped b\r\n"));
    QVERIFY(program.waitForText("stopped c\r\n"));
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.hasFormerMode());
    QVERIFY(program.screen().endsWith("\r\n") || program.screen().endsWith("\r\033[K"));
}

void TestTerminal::pauseReachesTheDevice()
{
    // Long and slow: the end of an item and its beginning again pause a device, too.
    VirtualCard::Settings settings;
    settings.speed = 1;
    const VirtualCard card("card", settings);
    media::writeWav("long.wav", media::noise(media::SampleFormat::S16, 8000, 1, 8000 * 600));
    TerminalProgram program({"-d", card.device(), "long.wav"});
    program.begin();
    QVERIFY(waitFor([&] { return card.has("first-frame"); }));
    program.type(" ");
    QVERIFY(waitFor([&] { return card.has("pause"); }));
    QVERIFY(program.waitForText("paused"));
    program.type(" ");
    QVERIFY(waitFor([&] { return card.has("resume"); }));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.waitForText("stopped long.wav\r\n"));
}

void TestTerminal::liveLineGoesBeforeTheOutcome()
{
    TerminalProgram program({"--fake", "--loop", "a", "b"});
    program.begin();
    QVERIFY(program.waitForText("[1/2] a  playing"));
    program.type("s");
    QVERIFY(program.waitForText("[2/2] b  playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    const QByteArray screen = program.screen();
    for (const char* item : {"a", "b"}) {
        const int outcome = screen.indexOf(QByteArray("stopped ") + item + "\r\n");
        QVERIFY(outcome >= 0);
        QVERIFY2(screen.indexOf(QByteArray("/2] ") + item, outcome) < 0, screen);
    }
}

void TestTerminal::clockStandsWhilePaused()
{
    TerminalProgram program({"--fake", "--loop", "a"});
    program.begin();
    QVERIFY(program.waitForText("a  playing  0:01"));
    program.type(" ");
    QVERIFY(program.waitForText("a  paused  0:0"));
    const QString paused = program.liveLines().last();
    QElapsedTimer timer;
    timer.start();
    QVERIFY(waitFor([&] { return timer.hasExpired(1100); })); // a running clock would show it
    QCOMPARE(program.liveLines().last(), paused);
    program.clear();
    program.type(" ");
    QVERIFY(program.waitForText("playing"));
    QCOMPARE(program.liveLines().first(), QString(paused).replace("paused", "playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::functionKeysDoNothing()
{
    TerminalProgram program({"--fake", "--loop", "a"});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.type("\033[Ax\033[15~\033OPz\033s\033q");
    program.type(" \033"); // nothing follows, as after the escape key itself
    QVERIFY(program.waitForText("a  paused"));
    QVERIFY(!program.screen().contains("stopped"));
    program.clear();
    program.type(" \033["); // as slow lines bring the keys above
    QVERIFY(program.waitForText("a  playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::liveLineFitsTerminal()
{
    TerminalProgram program({"--fake", "--loop", "a-name-of-many-letters.wav"}, 30);
    program.begin();
    QVERIFY(program.waitForText("a-name-of-m...  playing  0:0"));
    program.clear();
    program.resize(80);
    QVERIFY(program.waitForText("a-name-of-many-letters.wav  playing  0:0"));
    QVERIFY(program.waitForText("  (space: pause, s: stop, q: quit)"));
    program.clear();
    program.resize(7);
    QVERIFY(waitFor([&] { return !program.liveLines().isEmpty(); }));
    QVERIFY(waitFor([&] { return program.liveLines().last().size() < 7; }));
    program.resize(0); // not known; 80 is usual
    QVERIFY(program.waitForText("a-name-of-many-letters.wav  playing  0:0"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::liveLineOfSeveralItems()
{
    TerminalProgram program({"--fake", "--loop", "--at-once", "a", "b", "c"});
    program.begin();
    QVERIFY(program.waitForText("[3 of 3] a and others  playing  0:0"));
    program.type(" ");
    QVERIFY(program.waitForText("[3 of 3] a and others  paused  0:0"));
    program.type("s");
    QVERIFY(program.waitForText("stopped a\r\n"));
    QVERIFY(program.waitForText("stopped b\r\n"));
    QVERIFY(program.waitForText("stopped c\r\n"));
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::logLinesDoNotRunIntoLiveLine()
{
    const VirtualCard card("card");
    TerminalProgram program({"-vv", "-d", card.device(), one}, 200);
    program.begin();
    QVERIFY(program.waitForText("ended one.wav\r\n"));
    QCOMPARE(program.finish(), 0);
    const QByteArray screen = program.screen();
    int count = 0;
    for (int at = screen.indexOf(" TRACE "); at >= 0; at = screen.indexOf(" TRACE ", at + 1)) {
        const QByteArray before = screen.left(at - 12); // the time precedes the level
        QVERIFY2(before.isEmpty() || before.endsWith('\n') || before.endsWith("\r\033[K"), before);
        ++count;
    }
    QVERIFY(count > 10);
}

void TestTerminal::liveLineShowsFailing()
{
    TerminalProgram program({"-d", "null", one});
    hidePlugin(program, "libgstalsa.so");
    program.begin();
    QVERIFY(program.waitForText("one.wav  failing  0:00"));
    QVERIFY(program.waitForText("error one.wav: missing element alsasink\r\n"));
    QCOMPARE(program.finish(), 1);
}

/// Stops the items a and b with keys, and demands that nothing but the results is shown.
static void skipBothItems(TerminalProgram& program)
{
    program.begin();
    QVERIFY(waitFor([&] { return program.givesSingleKeys(); }));
    program.type("s");
    QVERIFY(program.waitForText("stopped a\r\n"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.screen(), QByteArray("stopped a\r\nstopped b\r\n"));
}

void TestTerminal::dumbTerminalGetsPlainOutput_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("dumb") << "dumb";
    QTest::newRow("unknown") << "";
}

void TestTerminal::dumbTerminalGetsPlainOutput()
{
    QFETCH(QString, type);
    TerminalProgram program({"--fake", "--loop", "a", "b"});
    program.set("TERM", type);
    skipBothItems(program);
}

void TestTerminal::nothingRunsIntoTheOutputOfAPipeline()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"--norc", "-c", "\"$0\" --fake --loop a b | cat", kovaPlay()});
    skipBothItems(program);
}

void TestTerminal::errorsInAFileNeedNoTerminal()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"-c", "exec \"$0\" --fake a b 2> errors.txt", kovaPlay()});
    program.begin();
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.screen(), QByteArray("stopped a\r\nstopped b\r\n"));
    QCOMPARE(media::readFile(TestProcess::path("errors.txt")), QByteArray());
}

void TestTerminal::keysWorkWithErrorsInAFile()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"-c", "exec \"$0\" -v --fake --loop a b 2> errors.txt", kovaPlay()});
    skipBothItems(program);
}

void TestTerminal::liveLineShowsMissingData()
{
    const VirtualCard card("card");
    const QString fifo = newFifoPath();
    const QByteArray name = QFileInfo(fifo).fileName().toUtf8();
    TerminalProgram program({"-d", card.device(), "-t", "stream", "--pipe", fifo}, 200);
    program.begin();
    QVERIFY(program.waitForText(name + "  waiting for data"));
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    // Not all of it, as the item ends where its header states.
    PipeWriter writer(fifo, media::readFile(one).left(60000), manner);
    QVERIFY(program.waitForText(name + "  playing  0:0"));
    QVERIFY(program.waitForText(name + "  waiting for data"));
    program.type(" ");
    QVERIFY(program.waitForText(name + "  paused  0:0"));
    program.type("q");
    QVERIFY(program.waitForText("stopped stream\r\n"));
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::liveLineShowsStalledCard()
{
    const VirtualCard card("card", VirtualCard::Settings::stalled());
    media::writeWav("long.wav", media::noise(480000)); // more than the buffers hold
    TerminalProgram program({"-d", card.device(), "long.wav"}, 200);
    program.begin();
    QVERIFY(program.waitForText("long.wav  card stalled"));
    program.type("q");
    QVERIFY(program.waitForText("stopped long.wav\r\n"));
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::resultsGoToStandardOutputOnly()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"-c", "\"$0\" --fake --loop a b > results.txt", kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("[1/2] a  playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    QVERIFY(!program.screen().contains("stopped a"));
    QCOMPARE(media::readFile(TestProcess::path("results.txt")),
             QByteArray("stopped a\nstopped b\n"));
}

void TestTerminal::terminalHasItsModeBack_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("status");
    QTest::newRow("SIGINT") << SIGINT << -SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM << 0;
    QTest::newRow("SIGHUP") << SIGHUP << 0;
    QTest::newRow("SIGQUIT") << SIGQUIT << -SIGQUIT;
    QTest::newRow("SIGABRT") << SIGABRT << -SIGABRT;
    QTest::newRow("SIGPIPE") << SIGPIPE << -SIGPIPE;
}

void TestTerminal::terminalHasItsModeBack()
{
    QFETCH(int, number);
    QFETCH(int, status);
    TerminalProgram program({"--fake", "--loop", "a"});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(program.givesSingleKeys());
    program.send(number);
    QCOMPARE(program.finish(), status);
    QVERIFY(program.hasFormerMode());
}

void TestTerminal::secondInterruptRestoresTerminal()
{
    if (signalsAreHeldBack) {
        QSKIP("ThreadSanitizer hands no signal to a program that is blocked");
    }
    TerminalProgram program({"-v", "-d", "null", one});
    blockAtDevice(program);
    program.begin();
    QVERIFY(program.waitForText("Enter"));
    QVERIFY(program.givesSingleKeys());
    QCOMPARE(interruptRepeatedly(program), -SIGINT);
    QVERIFY(program.hasFormerMode());
}

void TestTerminal::suspendedProgramGivesTerminalBack()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"--norc", "-c",
                          "set -m; \"$0\" --fake --loop a; echo suspended $?; read; fg",
                          kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.type("\032"); // ^Z
    QVERIFY(program.waitForText("suspended 148"));
    QVERIFY(waitFor([&] { return program.hasFormerMode(); }));
    program.clear();
    program.type("\n");
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(program.givesSingleKeys());
    program.type("q");
    QVERIFY(program.waitForText("stopped a\r\n"));
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.hasFormerMode());
}

/// How often a process has gone to sleep.
static int sleepsOf(pid_t process)
{
    static const QRegularExpression count("\nvoluntary_ctxt_switches:\t(\\d+)");
    const QString path = QString("/proc/%1/status").arg(process);
    return count.match(QString::fromLatin1(media::readFile(path))).captured(1).toInt();
}

void TestTerminal::backgroundProgramLeavesTerminalAlone()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments(
        {"--norc", "-c",
         "set -m; \"$0\" --fake --loop a & echo process $!.; fg; echo suspended; bg; "
         "read; echo forward; fg",
         kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("process "));
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(waitFor([&] { return program.givesSingleKeys(); }));
    const QByteArray screen = program.screen();
    const int number = screen.indexOf("process ") + 8;
    const pid_t process = screen.mid(number, screen.indexOf('.', number) - number).toInt();
    // Not by a key: a program that stops itself gives the terminal back before.
    ::kill(process, SIGSTOP);
    QVERIFY(program.waitForText("suspended"));
    program.resetMode();
    program.clear();
    const int sleeps = sleepsOf(process);
    QVERIFY(waitFor([&] { return sleepsOf(process) > sleeps + 5; }));
    program.type("\n");
    QVERIFY(program.waitForText("forward"));
    QVERIFY(!program.screen().left(program.screen().indexOf("forward")).contains("playing"));
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(waitFor([&] { return program.givesSingleKeys(); }));
    program.type("q");
    QVERIFY(program.waitForText("stopped a\r\n"));
    QCOMPARE(program.finish(), 0);
}

void TestTerminal::lostTerminalDoesNotEndIgnoringProgram()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments(
        {"-c", R"(trap '' HUP QUIT; exec "$0" --fake --loop a b > results.txt)", kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.hangUp();
    // It sleeps on: what is no terminal any more does not keep it busy.
    const auto process = static_cast<pid_t>(program.processId());
    const int sleeps = sleepsOf(process);
    QVERIFY(waitFor([&] { return sleepsOf(process) > sleeps + 5; }));
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(media::readFile(TestProcess::path("results.txt")),
             QByteArray("stopped a\nstopped b\n"));
}

KOVA_TEST(TestTerminal)
#include "tst_terminal.moc"
