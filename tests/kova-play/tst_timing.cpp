#include "Program.h"

#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/VirtualCard.h"

#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

/// What kova-play --timing prints.
class TestTiming : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void eachPartOfAStartHasItsLine();
    void scanAndReadingAreDistinguished();
    void itemThatFailsHasTheLinesItReached();
    void nothingIsShownWithoutTheOption();

private:
    /// The milliseconds in the line of `part`; negative when there is none.
    static double duration(const QByteArray& err, const QString& part);
};

double TestTiming::duration(const QByteArray& err, const QString& part)
{
    const QRegularExpression line("^kova-play: +([0-9]+\\.[0-9]) ms  " + part,
                                  QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = line.match(QString::fromUtf8(err));
    return match.hasMatch() ? match.captured(1).toDouble() : -1;
}

void TestTiming::eachPartOfAStartHasItsLine()
{
    const VirtualCard card("card");
    Program program({"--timing", "-d", card.device(), "one.wav"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    for (const char* part :
         {"loading the program and its libraries", "initialising GStreamer$",
          "(reading the registry|scanning)", "making the player$", "the start call$",
          "of it opening the device$", "from the start call to the first frame$",
          "of it loading [0-9]+ plug-ins: .*alsa.*", "from the start call to the outcome$"}) {
        QVERIFY2(duration(program.err, part) >= 0, part + program.err);
    }
    const double outcome = duration(program.err, "from the start call to the outcome");
    const double firstFrame = duration(program.err, "from the start call to the first frame");
    QVERIFY(duration(program.err, "of it opening the device") <=
            duration(program.err, "the start call"));
    QVERIFY(duration(program.err, "of it opening the device") <= firstFrame);
    QVERIFY(firstFrame <= outcome);
    QVERIFY(program.err.contains("kova-play: timing of the process:\n"));
    QVERIFY(program.err.contains("kova-play: timing of one.wav:\n"));
}

void TestTiming::scanAndReadingAreDistinguished()
{
    const VirtualCard card("card");
    Program first({"--timing", "-d", card.device(), "one.wav"});
    offerPlugins(first, {"wavparse"});
    QCOMPARE(first.finish(), 0);
    QVERIFY2(duration(first.err, "scanning the plug-ins for the registry$") > 0, first.err);
    Program second({"--timing", "-d", card.device(), "one.wav"});
    second.setProcessEnvironment(first.processEnvironment());
    QCOMPARE(second.finish(), 0);
    QVERIFY2(duration(second.err, "reading the registry$") >= 0, second.err);
}

void TestTiming::itemThatFailsHasTheLinesItReached()
{
    const VirtualCard card("card");
    Program program({"--timing", "-d", card.device(), "nothing.wav"});
    QCOMPARE(program.finish(), 1);
    QVERIFY(duration(program.err, "from the start call to the outcome$") >= 0);
    QCOMPARE(duration(program.err, "from the start call to the first frame"), -1.0);
    QCOMPARE(duration(program.err, "of it opening the device"), -1.0);
}

void TestTiming::nothingIsShownWithoutTheOption()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "one.wav"});
    QCOMPARE(program.finish(), 0);
    QVERIFY(!program.err.contains("ms"));
}

KOVA_TEST(TestTiming)
#include "tst_timing.moc"
