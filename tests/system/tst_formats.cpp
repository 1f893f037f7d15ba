#include "kit/LogCapture.h"
#include "kit/Media.h"
#include "kit/Source.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

using media::SampleFormat;

/// What is recorded of items in all formats, whole and damaged.
class TestFormats : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void wavArrivesBitExact_data();
    void wavArrivesBitExact();
    void flacArrivesBitExact_data();
    void flacArrivesBitExact();
    void lossyFormatArrivesWhole_data();
    void lossyFormatArrivesWhole();

    void soundOfVideoIsPlayedAndPictureSkipped_data();
    void soundOfVideoIsPlayedAndPictureSkipped();
    void oneOfTwoAudioStreamsIsPlayed();
    void pictureAloneIsNeverPlayedAndCanBeStopped();

    void containerCutInItsHeadersHasOneOutcomeAtTheLatestAfterStop_data();
    void containerCutInItsHeadersHasOneOutcomeAtTheLatestAfterStop();
    void damagedItemHasOneOutcome_data();
    void damagedItemHasOneOutcome();

private:
    QString tone; ///< a WAV file of one second, 48 kHz stereo
};

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

void TestFormats::initTestCase()
{
    tone = media::writeWav("tone.wav", media::tone(48000, 2, 48000));
}

void TestFormats::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

static QStringList play(const Source& source, const QByteArray& bytes, const VirtualCard& card)
{
    SourcePlayer player(source, Item(bytes), card.device());
    player.start();
    return player.finish();
}

static QStringList playFile(const QString& file, const VirtualCard& card)
{
    return play(Source::uri(), media::readFile(file), card);
}

// ---- Whole items -------------------------------------------------------------------------------

void TestFormats::wavArrivesBitExact_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<SampleFormat>("format");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("channels");
    // GStreamer's sink counts in nanoseconds: where the first block of a file does not last a whole
    // number of them, it rounds the first frame away.
    QTest::addColumn<bool>("firstFrameMayBeMissing");

    for (const Source* source : Source::all()) {
        const auto row = [source](const char* name, SampleFormat format, int rate, int channels,
                                  bool firstFrameMayBeMissing) {
            QTest::addRow("%s: %s", source->name, name)
                << source << format << rate << channels << firstFrameMayBeMissing;
        };
        row("S16 mono 8 kHz", SampleFormat::S16, 8000, 1, false);
        row("S16 stereo 44.1 kHz", SampleFormat::S16, 44100, 2, true);
        row("S16 5.1 48 kHz", SampleFormat::S16, 48000, 6, false);
        row("S24 stereo 48 kHz", SampleFormat::S24, 48000, 2, false);
        row("S32 mono 22.05 kHz", SampleFormat::S32, 22050, 1, true);
        row("S32 stereo 192 kHz", SampleFormat::S32, 192000, 2, false);
        row("F32 stereo 96 kHz", SampleFormat::F32, 96000, 2, false);
        row("F32 5.1 48 kHz", SampleFormat::F32, 48000, 6, false);
    }
}

void TestFormats::wavArrivesBitExact()
{
    QFETCH(const Source*, source);
    QFETCH(SampleFormat, format);
    QFETCH(int, rate);
    QFETCH(int, channels);
    QFETCH(bool, firstFrameMayBeMissing);
    const media::Pcm sound = media::noise(format, rate, channels, rate / 4);
    const VirtualCard card("card");
    QCOMPARE(play(*source, media::wavBytes(sound), card), ended());
    QCOMPARE(card.rate(), rate);
    QCOMPARE(card.channels(), channels);
    const QByteArray recorded = media::withoutTrailingSilence(card.samples(), sound.frameSize());
    QVERIFY(recorded == sound.samples ||
            (firstFrameMayBeMissing && recorded == sound.samples.mid(sound.frameSize())));
}

void TestFormats::flacArrivesBitExact_data()
{
    QTest::addColumn<const Source*>("source");
    for (const Source* source : Source::all()) {
        QTest::newRow(source->name) << source;
    }
}

void TestFormats::flacArrivesBitExact()
{
    QFETCH(const Source*, source);
    const media::Pcm sound = media::noise(48000);
    const QString file = media::encode("whole.flac", media::writeWav("whole.wav", sound));
    const VirtualCard card("card");
    QCOMPARE(play(*source, media::readFile(file), card), ended());
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

/// What the card has recorded, without the silence at its end.
static media::Pcm recordedOn(const VirtualCard& card)
{
    const SampleFormat format = card.format() == "F32" ? SampleFormat::F32 : SampleFormat::S16;
    media::Pcm sound{format, card.rate(), card.channels(), {}};
    if (sound.channels > 0) {
        sound.samples = media::withoutTrailingSilence(card.samples(), sound.frameSize());
    }
    return sound;
}

/// Whether this is about one second of the tone. Encoders fill up blocks at both ends; for an MP3
/// file that is read from a pipe, the decoder does not remove them.
static bool isTheTone(const media::Pcm& sound)
{
    constexpr double levelOfTone = 12000.0 / 32768.0 * 0.7071;
    return sound.rate == 48000 && sound.channels == 2 && qAbs(sound.frames() - 48000) <= 3 * 1152 &&
           qAbs(media::loudness(sound) / levelOfTone - 1.0) < 0.1;
}

void TestFormats::lossyFormatArrivesWhole_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QString>("name");
    for (const Source* source : Source::all()) {
        for (const char* suffix : {"ogg", "opus", "mp3"}) {
            QTest::addRow("%s: %s", source->name, suffix)
                << source << QStringLiteral("tone.%1").arg(suffix);
        }
    }
}

void TestFormats::lossyFormatArrivesWhole()
{
    QFETCH(const Source*, source);
    QFETCH(QString, name);
    const VirtualCard card("card");
    QCOMPARE(play(*source, media::readFile(media::encode(name, tone)), card), ended());
    const media::Pcm recorded = recordedOn(card);
    QVERIFY2(isTheTone(recorded), qPrintable(QString::number(recorded.frames())));
}

// ---- Containers --------------------------------------------------------------------------------

void TestFormats::soundOfVideoIsPlayedAndPictureSkipped_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("codec");
    QTest::newRow("Matroska, Opus") << "opus.mkv"
                                    << "libopus";
    QTest::newRow("Matroska, Vorbis") << "vorbis.mkv"
                                      << "libvorbis";
    QTest::newRow("MP4, MP3") << "mp3.mp4"
                              << "libmp3lame";
    QTest::newRow("MP4, FLAC") << "flac.mp4"
                               << "flac";
}

void TestFormats::soundOfVideoIsPlayedAndPictureSkipped()
{
    QFETCH(QString, name);
    QFETCH(QString, codec);
    const QString file = media::encodeContainer(name, codec, {tone}, true);
    const LogCapture log;
    const VirtualCard card("card");
    QCOMPARE(playFile(file, card), ended());
    QCOMPARE(log.texts("WARN").size(), 1);
    QVERIFY(isTheTone(recordedOn(card)));
}

void TestFormats::oneOfTwoAudioStreamsIsPlayed()
{
    // Which of the two it is, the demuxer decides: they are of one kind and differ in length.
    const QString shorter = media::writeWav("shorter.wav", media::tone(48000, 2, 24000));
    const QString file = media::encodeContainer("two.mkv", "libopus", {tone, shorter}, false);
    const LogCapture log;
    const VirtualCard card("card");
    QCOMPARE(playFile(file, card), ended());
    QCOMPARE(log.texts("WARN") + log.texts("ERROR"), QStringList());
    QVERIFY(isTheTone(recordedOn(card)));
}

void TestFormats::pictureAloneIsNeverPlayedAndCanBeStopped()
{
    // Nothing ever reaches the sink: the pipeline waits for it, without an end and without an
    // error.
    const QString file = media::encodeContainer("picture.mkv", "libopus", {}, true);
    const LogCapture log;
    const VirtualCard card("card");
    SourcePlayer player(Source::uri(), Item(media::readFile(file)), card.device());
    QVERIFY(player.start());
    QVERIFY(waitFor([&log] { return log.texts("WARN").size() == 1; }));
    QCOMPARE(player.outcomes(), QStringList());
    QVERIFY(player->stopPlayback());
    QCOMPARE(player.finish(), QStringList("stopped token"));
    QCOMPARE(card.frames(), 0);
}

// ---- Damaged items -----------------------------------------------------------------------------

/// Three seconds of noise in a format.
static QByteArray noiseItem(const QString& suffix)
{
    const QString name = QStringLiteral("noise.") + suffix;
    const QString path = TestProcess::path(name);
    if (QFile::exists(path)) {
        return media::readFile(path);
    }
    const QString wav = media::writeWav("noise.wav", media::noise(144000));
    if (suffix == "mkv" || suffix == "mp4") {
        media::encodeContainer(name, suffix == "mkv" ? "libopus" : "libmp3lame", {wav}, false);
    } else if (suffix != "wav") {
        media::encode(name, wav);
    }
    return media::readFile(path);
}

void TestFormats::containerCutInItsHeadersHasOneOutcomeAtTheLatestAfterStop_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("percent");
    QTest::newRow("Ogg Vorbis") << "ogg" << 1;
    QTest::newRow("Opus") << "opus" << 1;
    QTest::newRow("Matroska") << "mkv" << 1;
    QTest::newRow("MP4, whose headers are at its end") << "mp4" << 50;
}

void TestFormats::containerCutInItsHeadersHasOneOutcomeAtTheLatestAfterStop()
{
    // GStreamer loses a demuxer's error about once in fifty times, when it comes while the decoder
    // is still putting its elements together. Nothing more ever happens then.
    QFETCH(QString, suffix);
    QFETCH(int, percent);
    const QByteArray whole = noiseItem(suffix);
    const VirtualCard card("card");
    SourcePlayer player(Source::uri(), Item(whole.left(whole.size() * percent / 100)),
                        card.device());
    QVERIFY(player.start());
    deliverQueuedEvents();
    player->stopPlayback();
    const QStringList outcomes = player.finish();
    QCOMPARE(outcomes.size(), 1);
    QVERIFY2(!outcomes.first().startsWith("ended"), qPrintable(outcomes.first()));
    QCOMPARE(card.frames(), 0);
}

void TestFormats::damagedItemHasOneOutcome_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QString>("suffix");
    for (const Source* source : Source::all()) {
        for (const char* suffix : {"wav", "ogg", "opus", "flac", "mp3", "mkv", "mp4"}) {
            QTest::addRow("%s: %s", source->name, suffix) << source << QString(suffix);
        }
    }
}

void TestFormats::damagedItemHasOneOutcome()
{
    QFETCH(const Source*, source);
    QFETCH(QString, suffix);
    QByteArray bytes = noiseItem(suffix);
    // Every hundredth byte between the headers, which some formats have at the end.
    for (int i = bytes.size() / 4; i < bytes.size() * 3 / 4; i += 100) {
        bytes[i] = static_cast<char>(bytes.at(i) ^ 0x55);
    }
    const VirtualCard card("card");
    const QStringList outcomes = play(*source, bytes, card);
    // Whether it ends or fails depends on the decoder.
    QCOMPARE(outcomes.size(), 1);
    QVERIFY2(!outcomes.first().startsWith("stopped"), qPrintable(outcomes.first()));
}

KOVA_TEST(TestFormats)
#include "tst_formats.moc"
