#include "Program.h"

#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

/// What kova-play reports when GStreamer lacks a plug-in.
class TestMissing : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void failedItemNamesWhatIsMissing_data();
    void failedItemNamesWhatIsMissing();
    void itemsAtOnceNameTheirOwn();
    void missingPluginIsNoReasonForAnotherFailure();
    void hintAdvisesNothingThatWasGiven_data();
    void hintAdvisesNothingThatWasGiven();
    void verboseShowsWarningsOfGStreamer();
    void verboseShowsTheFormatOfTheDevice();
    void smallRegistryPlaysItsFormatsOnly();
};

void TestMissing::failedItemNamesWhatIsMissing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("hint");

    const QByteArray base("kova-play: apt-get install gstreamer1.0-plugins-base\n");
    const QByteArray good("kova-play: apt-get install gstreamer1.0-plugins-good\n");
    const QString tone = media::writeWav("tone.wav", media::tone(44100, 1, 44100));
    const QString opus = media::encode("tone.opus", tone);
    const QByteArray noOpus("error tone.opus: missing plug-in: Opus decoder\n");
    QTest::newRow("decoder") << QStringList{opus} << noOpus << base;
    QTest::newRow("decoder, in memory") << QStringList{"--data", opus} << noOpus << base;
    QTest::newRow("demuxer") << QStringList{"one.wav"}
                             << QByteArray("error one.wav: missing plug-in: WAV demuxer\n") << good;
    // Its parser is there, and comes in another package.
    QTest::newRow("decoder behind a parser")
        << QStringList{media::encodeContainer("tone.m4a", "aac", {tone}, false)}
        << QByteArray("error tone.m4a: missing plug-in: MPEG-4 AAC decoder\n")
        << QByteArray("kova-play: apt-get install gstreamer1.0-libav\n");
    QTest::newRow("two items") << QStringList{opus, "one.wav"}
                               << noOpus + "error one.wav: missing plug-in: WAV demuxer\n"
                               << base + good;
    QTest::newRow("protocol") << QStringList{"http://localhost/one.wav"}
                              << QByteArray(
                                     "error one.wav: missing plug-in: HTTP protocol source\n")
                              << good;
}

void TestMissing::failedItemNamesWhatIsMissing()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, hint);
    const VirtualCard card("card");
    Program program(QStringList{"-d", card.device()} + arguments);
    offerPlugins(program, {"ogg", "isomp4", "audioparsers"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, out);
    QCOMPARE(program.err, hint);
}

void TestMissing::itemsAtOnceNameTheirOwn()
{
    const VirtualCard card("card"); // for its configuration
    const QString tone = media::writeWav("tone.wav", media::tone(44100, 1, 44100));
    Program program({"-d", "null", "--at-once", "one.wav", media::encode("tone.opus", tone)});
    offerPlugins(program, {"ogg"});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.contains("error one.wav: missing plug-in: WAV demuxer\n"), program.out);
    QVERIFY2(program.out.contains("error tone.opus: missing plug-in: Opus decoder\n"), program.out);
}

void TestMissing::missingPluginIsNoReasonForAnotherFailure()
{
    // The picture cannot be decoded, the sound can; but the device is unplugged.
    VirtualCard::Settings settings;
    settings.vanishAfter = 4800;
    const VirtualCard card("card", settings);
    const QString film = media::encodeContainer("film.mkv", "flac", {one}, true);
    Program program({"-d", card.device(), film});
    offerPlugins(program, {"matroska", "flac", "audioparsers"});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith("error film.mkv: "), program.out);
    QVERIFY2(!program.out.contains("missing"), program.out);
}

void TestMissing::hintAdvisesNothingThatWasGiven_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("hint");
    QTest::newRow("nothing given") << QStringList{} << QByteArray("run again with -v, ");
    QTest::newRow("-v") << QStringList{"-v"} << QByteArray("run again with -vv, ");
    QTest::newRow("-vv") << QStringList{"-vv"} << QByteArray("kova-play --check ITEM");
}

void TestMissing::hintAdvisesNothingThatWasGiven()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, hint);
    media::writeFile("text.txt", "This is no music.\n");
    Program program(arguments + QStringList{"-d", "null", "text.txt"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.err.count("kova-play: run again") + program.err.count("--check ITEM"), 1);
    QVERIFY2(program.err.contains("kova-play: " + hint), program.err);
}

void TestMissing::verboseShowsWarningsOfGStreamer()
{
    const VirtualCard card("card");
    VirtualCard::Settings settings;
    settings.refuse = "open";
    const VirtualCard refusing("refusing", settings);
    Program program({"-v", "-d", refusing.device(), "one.wav"});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.err.contains("gstreamer.alsa"), program.err);
    Program quiet({"-d", card.device(), "one.wav"});
    QCOMPARE(quiet.finish(), 0);
    QCOMPARE(quiet.err, QByteArray());
}

void TestMissing::verboseShowsTheFormatOfTheDevice()
{
    const VirtualCard card("card");
    const QString mono =
        media::writeWav("mono.wav", media::noise(media::SampleFormat::S16, 44100, 1, 4410, 1));
    Program program({"-v", "-d", card.device(), "one.wav", mono});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.err.count("the device was opened with "), 2);
    QVERIFY(program.err.contains("kova-play: the device was opened with 48000 Hz stereo S16LE\n"));
    QVERIFY(program.err.contains("kova-play: the device was opened with 44100 Hz mono S16LE\n"));
}

void TestMissing::smallRegistryPlaysItsFormatsOnly()
{
    Program registry({KOVA_SOURCE "/scripts/registry", TestProcess::path("registry"), "wav"});
    registry.setProgram("sh");
    QCOMPARE(registry.finish(), 0);
    const QString ogg = media::encode("tone.ogg", one);
    const VirtualCard card("card");
    Program program({"-d", card.device(), one, ogg});
    for (const QByteArray& setting : registry.out.trimmed().split('\n')) {
        program.set(setting.left(setting.indexOf('=')), setting.mid(setting.indexOf('=') + 1));
    }
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"
                                     "error tone.ogg: missing plug-in: Ogg demuxer\n"));
}

KOVA_TEST(TestMissing)
#include "tst_missing.moc"
