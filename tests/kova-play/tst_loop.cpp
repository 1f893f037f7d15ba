#include "Program.h"

#include "kit/TestMain.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

#include <csignal>

class TestLoop : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void loopOnCardThatCanPauseIsAnnounced_data();
    void loopOnCardThatCanPauseIsAnnounced();
    void newPlayersPlayEachPassWhole();
    void errorEndsALoopOfNewPlayers();
    void standardInputHasNoSecondPass();
};

void TestLoop::loopOnCardThatCanPauseIsAnnounced_data()
{
    QTest::addColumn<bool>("canPause");
    QTest::addColumn<QString>("option");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("can pause")
        << true << "--loop"
        << QByteArray("kova-play: this card can pause: each pass but the first begins with a fifth "
                      "of a second of silence in place of its sound; --loop=new plays it whole\n");
    QTest::newRow("cannot pause") << false << "--loop" << QByteArray();
    QTest::newRow("new players") << true << "--loop=new" << QByteArray();
}

void TestLoop::loopOnCardThatCanPauseIsAnnounced()
{
    QFETCH(bool, canPause);
    QFETCH(QString, option);
    QFETCH(QByteArray, message);
    VirtualCard::Settings settings;
    settings.canPause = canPause;
    const VirtualCard card("card", settings);
    Program program({"-d", card.device(), option, one});
    program.begin();
    QVERIFY(card.waitForFrames(1));
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped one.wav\n"));
    QCOMPARE(program.err, message);
}

void TestLoop::newPlayersPlayEachPassWhole()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "--loop=new", one, two});
    program.begin();
    QVERIFY(waitFor([&] { return card.samples().count(samplesOfOne) > 2; }));
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped one.wav\nstopped two.wav\n"));
}

void TestLoop::errorEndsALoopOfNewPlayers()
{
    Program program({"--loop=new", "nothing.wav"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error nothing.wav: file does not exist\n"));
}

void TestLoop::standardInputHasNoSecondPass()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "--loop=new", "-"});
    program.setStandardInputFile(one);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended -\n"));
}

KOVA_TEST(TestLoop)
#include "tst_loop.moc"
