#include "Program.h"

#include "kit/TestMain.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

class TestLog : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void logIsSilentWithoutVerbose();
    void verboseLogsDownToDebug();
    void verboseTwiceLogsEverything();
};

void TestLog::logIsSilentWithoutVerbose()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.err, QByteArray());
}

void TestLog::verboseLogsDownToDebug()
{
    const VirtualCard card("card");
    Program program({"-v", "-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QVERIFY(program.err.contains(" INFO  SimplePlayer: "));
    QVERIFY(program.err.contains(" DEBUG SimplePlayer: "));
    QVERIFY(!program.err.contains(" TRACE "));
    QVERIFY(!program.err.contains("log4cplus"));
}

void TestLog::verboseTwiceLogsEverything()
{
    const VirtualCard card("card");
    Program program({"--verbose", "-v", "-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.err.contains(" TRACE SimplePlayer: "));
}

KOVA_TEST(TestLog)
#include "tst_log.moc"
