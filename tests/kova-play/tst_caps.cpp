#include "Program.h"

#include "kit/TestMain.h"

#include <QtTest/QtTest>

/// What kova-play makes of caps that the user has mistyped.
class TestCaps : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void wrongFieldIsNamedBeforeAnythingPlays_data();
    void wrongFieldIsNamedBeforeAnythingPlays();
    void rightCapsAreAccepted_data();
    void rightCapsAreAccepted();
};

void TestCaps::wrongFieldIsNamedBeforeAnythingPlays_data()
{
    QTest::addColumn<QString>("caps");
    QTest::addColumn<QByteArray>("message");

    const QString raw = "audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved";
    QTest::newRow("no caps") << "a b(" << QByteArray("does not describe caps");
    QTest::newRow("anything") << "ANY" << QByteArray("does not describe caps");
    QTest::newRow("format without order of bytes")
        << QString(raw).replace("S16LE", "S16")
        << QByteArray("format cannot be 'S16': it is one of ");
    QTest::newRow("ALSA's name of a format")
        << QString(raw).replace("S16LE", "S16_LE")
        << QByteArray("format cannot be 'S16_LE': it is one of ");
    QTest::newRow("several formats")
        << QString(raw).replace("S16LE", "{S16LE,S8}") << QByteArray("format cannot be");
    QTest::newRow("no format") << QString(raw).remove("format=S16LE,")
                               << QByteArray("'format' is missing: it is one of ");
    QTest::newRow("no rate") << QString(raw).remove("rate=48000,")
                             << QByteArray("'rate' is missing: it is a number of samples per "
                                           "second, as 48000\n");
    QTest::newRow("rate in letters") << QString(raw).replace("48000", "abc")
                                     << QByteArray("rate cannot be 'abc': it is a number");
    QTest::newRow("rate of nothing")
        << QString(raw).replace("48000", "0") << QByteArray("rate cannot be '0'");
    QTest::newRow("no channels") << QString(raw).remove("channels=2,")
                                 << QByteArray("'channels' is missing: it is a number, as 2\n");
    QTest::newRow("no layout") << QString(raw).remove(",layout=interleaved")
                               << QByteArray("'layout' is missing: it is interleaved");
    QTest::newRow("layout of planes") << QString(raw).replace("interleaved", "non-interleaved")
                                      << QByteArray("layout cannot be 'non-interleaved'");
    QTest::newRow("unknown field") << QString(raw).replace("channels", "chanels")
                                   << QByteArray("there is no field 'chanels': the fields are "
                                                 "format, rate, channels, layout, channel-mask");
    const QString four = QString(raw).replace("channels=2", "channels=4");
    const QByteArray mask("it is (bitmask) and a number with one bit for each channel, as "
                          "(bitmask)0x33 for four\n");
    QTest::newRow("no channel mask") << four << "'channel-mask' is missing: " + mask;
    QTest::newRow("channel mask in letters") << four + ",channel-mask=abc"
                                             << "channel-mask cannot be 'abc': " + mask;
    QTest::newRow("channel mask of two channels")
        << four + ",channel-mask=(bitmask)0x3"
        << "channel-mask cannot be '0x0000000000000003': " + mask;
    QTest::newRow("unaligned") << QString(raw).replace("x-raw,format=S16LE", "x-unaligned-raw")
                               << QByteArray("'format' is missing");
    QTest::newRow("unknown type") << "audio/x-rav,rate=48000"
                                  << QByteArray("nothing here decodes 'audio/x-rav'");
}

void TestCaps::wrongFieldIsNamedBeforeAnythingPlays()
{
    QFETCH(QString, caps);
    QFETCH(QByteArray, message);
    Program program({"-d", "null", "--caps", caps, "--pipe", "p", "one.wav"});
    QCOMPARE(program.finish(), 2);
    QCOMPARE(program.out, QByteArray());
    QVERIFY2(program.err.contains(message), program.err);
}

void TestCaps::rightCapsAreAccepted_data()
{
    QTest::addColumn<QString>("caps");
    QTest::newRow("whole frames")
        << "audio/x-raw,format=F32LE,rate=48000,channels=2,layout=interleaved";
    QTest::newRow("any blocks")
        << "audio/x-unaligned-raw, format=(string)U8, rate=8000, channels=1, layout=interleaved";
    QTest::newRow("four channels") << "audio/x-raw,format=S16LE,rate=48000,channels=4,"
                                      "layout=interleaved,channel-mask=(bitmask)0x33";
    QTest::newRow("no positions") << "audio/x-raw,format=S16LE,rate=48000,channels=4,"
                                     "layout=interleaved,channel-mask=(bitmask)0";
    QTest::newRow("encoded") << "audio/x-flac";
    QTest::newRow("container") << "application/ogg";
}

void TestCaps::rightCapsAreAccepted()
{
    QFETCH(QString, caps);
    Program program({"--fake", "--caps", caps, "--pipe", "p"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped p\n"));
}

KOVA_TEST(TestCaps)
#include "tst_caps.moc"
