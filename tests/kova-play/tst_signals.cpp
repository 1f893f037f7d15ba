#include "Program.h"

#include "kit/TestMain.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

#include <csignal>

class TestSignals : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void signalStopsLoopAndItemsNotBegun_data();
    void signalStopsLoopAndItemsNotBegun();
    void interruptEndsTheLoopOfAShell();
    void secondInterruptEndsBlockedProgram();
    void ignoredSignalStaysIgnored();
};

void TestSignals::signalStopsLoopAndItemsNotBegun_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("status");
    QTest::newRow("SIGINT") << SIGINT << -SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM << 0;
    QTest::newRow("SIGHUP") << SIGHUP << 0;
}

void TestSignals::signalStopsLoopAndItemsNotBegun()
{
    QFETCH(int, number);
    QFETCH(int, status);
    VirtualCard::Settings settings;
    settings.canPause = false; // otherwise the program warns about loops
    const VirtualCard card("card", settings);
    Program program({"-d", card.device(), "--loop", one, two});
    program.begin();
    const QByteArray part = samplesOfOne.mid(40000, 4000);
    QVERIFY(waitFor([&] { return card.samples().count(part) > 1; })); // it has looped
    program.send(number);
    QCOMPARE(program.finish(), status);
    QCOMPARE(program.out, QByteArray("stopped one.wav\nstopped two.wav\n"));
    QCOMPARE(program.err, QByteArray());
    // Once to ask whether it can pause, and once for the first item.
    QCOMPARE(card.eventNames().count("open"), 2);
    QCOMPARE(card.eventNames().count("close"), 2);
}

void TestSignals::interruptEndsTheLoopOfAShell()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments(
        {"--norc", "-c", "for item in a b; do \"$0\" --fake --loop $item; done", kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.type("\003"); // ^C
    QCOMPARE(program.finish(), -SIGINT);
    QVERIFY(program.screen().contains("stopped a\r\n"));
    QVERIFY(!program.screen().contains("b  playing"));
}

void TestSignals::secondInterruptEndsBlockedProgram()
{
    if (signalsAreHeldBack) {
        QSKIP("ThreadSanitizer hands no signal to a program that is blocked");
    }
    Program program({"-v", "-d", "null", one});
    blockAtDevice(program);
    program.begin();
    QVERIFY(waitFor([&] { return program.err.contains("Enter"); }));
    QCOMPARE(interruptRepeatedly(program), -SIGINT);
    QCOMPARE(program.out, QByteArray());
}

void TestSignals::ignoredSignalStaysIgnored()
{
    const VirtualCard card("card");
    Program program({});
    program.setProgram("bash");
    program.setArguments(
        {"-c", R"(trap '' HUP; exec "$0" -d "$1" --loop one.wav)", kovaPlay(), card.device()});
    program.begin();
    QVERIFY(waitFor([&] { return card.frames() > 0; }));
    program.send(SIGHUP);
    const qint64 framesAtSignal = card.frames();
    const qint64 framesOfOne = samplesOfOne.size() / 4;
    QVERIFY(waitFor([&] { return card.frames() > framesAtSignal + 4 * framesOfOne; }));
    QCOMPARE(program.out, QByteArray());
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
}

KOVA_TEST(TestSignals)
#include "tst_signals.moc"
