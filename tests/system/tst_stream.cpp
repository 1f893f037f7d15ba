#include "kit/Effort.h"
#include "kit/Media.h"
#include "kit/Source.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <glib.h>

#include <algorithm>

using media::SampleFormat;

Q_DECLARE_METATYPE(PipeWriter::Manner)

/// What is recorded of what other processes write into a FIFO.
///
/// GStreamer's sink holds up to two buffers of sound: one of its own and that of the card. Both are
/// filled at the start and both are still to be played when the last sample leaves the decoder.
class TestStream : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void wavOfUnknownLengthArrivesBitExact();
    void livePrograms_data();
    void livePrograms();
    void liveSpeechArrivesButForOneFrame();

    void mannerOfWritingDoesNotMatter_data();
    void mannerOfWritingDoesNotMatter();
    void samplesWithTimesThatComeTooLateAreSkipped();
    void samplesWithoutTimesAreNeverTooLate();

    void rawSamplesNeedSilenceForTwoBuffers_data();
    void rawSamplesNeedSilenceForTwoBuffers();
    void rawSamplesLoseTwoBuffers();
    void trueOrInvalidCapsAreAccepted_data();
    void trueOrInvalidCapsAreAccepted();
    void wrongCapsAreReported_data();
    void wrongCapsAreReported();

    void fastWriterWaitsAndMemoryStays_data();
    void fastWriterWaitsAndMemoryStays();
};

// ---- What all tests share ----------------------------------------------------------------------

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

/// An item in a FIFO.
static Item itemOf(const QByteArray& bytes, const QString& caps = QString())
{
    Item item(bytes);
    item.caps = caps;
    return item;
}

/// What a player of an item in a FIFO reports from its start to its end.
static QStringList play(const Item& item, const VirtualCard& card,
                        const PipeWriter::Manner& manner = PipeWriter::Manner())
{
    SourcePlayer player(Source::stream(), item, card.device());
    player.start(manner);
    return player.finish();
}

/// The header of a WAV file.
static constexpr int wavHeaderSize = 44;

/// The frames of the card's own buffer; 0 if the card has not been configured.
static int bufferOf(const VirtualCard& card)
{
    for (const VirtualCard::Event& event : card.events()) {
        if (event.name == "configure") {
            return event.details.section(' ', 3, 3).toInt();
        }
    }
    return 0;
}

/// What the card's buffer has with GStreamer's settings: 200 ms at 48 kHz.
static constexpr int usualBuffer = 9600;

void TestStream::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- Formats -----------------------------------------------------------------------------------

void TestStream::wavOfUnknownLengthArrivesBitExact()
{
    const media::Pcm sound = media::noise(48000);
    const VirtualCard card("card");
    QCOMPARE(play(itemOf(media::endlessWavBytes(sound)), card), ended());
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

void TestStream::livePrograms_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("caps");
    const auto row = [](const char* name, const char* program, const char* caps = "") {
        QTest::newRow(name) << QString(program) << QString(caps);
    };
    row("sox, WAV", "sox -t wav - -t wav -");
    row("sox, FLAC", "sox -t wav - -t flac -");
    row("ffmpeg, WAV", "ffmpeg -v error -i - -f wav -");
    row("ffmpeg, Opus", "ffmpeg -v error -i - -f ogg -c:a libopus -");
    row("ffmpeg, MP3", "ffmpeg -v error -i - -f mp3 -");
    row("ffmpeg, Matroska", "ffmpeg -v error -i - -f matroska -c:a flac -");
    row("oggenc", "oggenc -Q -o - -");
    row("opusenc", "opusenc --quiet - -");
    row("lame", "lame --quiet - -");
    row("sox, raw samples", "sox -t wav - -t raw - pad 0 1",
        "audio/x-unaligned-raw,format=S16LE,rate=48000,channels=2,layout=interleaved");
}

/// Starts a shell command that reads the file `input` and writes the file `output`.
static void startProgram(QProcess& process, const QString& command, const QString& input,
                         const QString& output)
{
    process.start("sh", {"-c", "exec <\"$1\" >\"$2\"; " + command, "sh", input, output});
}

/// What a program writes.
static QByteArray outputOf(const QString& command, const QString& input)
{
    const QString path = TestProcess::path("output");
    QProcess process;
    startProgram(process, command, input, path);
    if (!process.waitForFinished(patience) || process.exitCode() != 0) {
        qFatal("%s failed", qPrintable(command));
    }
    return media::readFile(path);
}

/// What is recorded of the same bytes in a file.
static QByteArray recordedOfFile(const QByteArray& bytes)
{
    const VirtualCard card("file");
    SourcePlayer player(Source::uri(), Item(bytes), card.device());
    player.start();
    return player.finish() == ended() ? media::withoutTrailingSilence(card.samples(), 4)
                                      : QByteArray();
}

void TestStream::livePrograms()
{
    QFETCH(QString, program);
    QFETCH(QString, caps);
    const QString input = media::writeWav("input.wav", media::noise(48000));
    QByteArray expected = caps.isEmpty() ? recordedOfFile(outputOf(program, input))
                                         : media::readFile(input).mid(wavHeaderSize);
    QVERIFY(expected.size() > 150000);
    const VirtualCard card("card");
    SourcePlayer player(Source::stream(), itemOf({}, caps), card.device());
    QVERIFY(player->startPlayback());
    QProcess encoder;
    startProgram(encoder, program, input, player.item.fifo);
    QCOMPARE(player.finish(), ended());
    QVERIFY(encoder.state() == QProcess::NotRunning || encoder.waitForFinished());
    QCOMPARE(encoder.exitCode(), 0);
    QCOMPARE(media::difference(card.samples(), expected), QString());
}

void TestStream::liveSpeechArrivesButForOneFrame()
{
    const QString program = QStringLiteral("espeak-ng --stdout 'One two three'");
    const QByteArray wav = outputOf(program, QProcess::nullDevice());
    QByteArray spoken = media::withoutTrailingSilence(wav.mid(wavHeaderSize), 2);
    QVERIFY(spoken.size() > 20000);
    const VirtualCard card("card");
    SourcePlayer player(Source::stream(), itemOf({}), card.device());
    QVERIFY(player->startPlayback());
    QProcess speaker;
    startProgram(speaker, program, QProcess::nullDevice(), player.item.fifo);
    QCOMPARE(player.finish(), ended());
    const QByteArray recorded = media::withoutTrailingSilence(card.samples(), 2);
    // At 22050 Hz the times of the first block are rounded such that GStreamer's sink leaves out
    // its first frame, also in a pipeline of its own.
    if (recorded.size() < spoken.size()) {
        spoken.remove(0, 2);
    }
    QCOMPARE(media::difference(recorded, spoken, 2), QString());
}

// ---- Manners of writing ------------------------------------------------------------------------

void TestStream::mannerOfWritingDoesNotMatter_data()
{
    QTest::addColumn<int>("frames");
    QTest::addColumn<double>("speed");
    QTest::addColumn<PipeWriter::Manner>("manner");
    const auto row = [](const char* name, int frames, double speed, int first, int chunk,
                        int pauseMs) {
        PipeWriter::Manner manner;
        manner.first = first;
        manner.chunk = chunk;
        manner.pauseMs = pauseMs;
        QTest::newRow(name) << frames << speed << manner;
    };
    row("one byte at a time", 2000, 20.0, 1, 1, 0);
    row("a trickle", 4000, 20.0, 64, 64, 2);
    row("all at once", 65536, 20.0, 262188, 262188, 0);
    row("silent for a second behind the first byte", 48000, 20.0, 1, 262188, 1000);
    // Each burst plays for 260 ms, and the next one follows after 100 ms. Before them the sink
    // takes two buffers without waiting, 76800 bytes. What it does not get in time it replaces by
    // silence, as it does in any pipeline.
    row("bursts", 96000, 1.0, 90000, 50001, 100);
}

void TestStream::mannerOfWritingDoesNotMatter()
{
    QFETCH(int, frames);
    QFETCH(double, speed);
    QFETCH(PipeWriter::Manner, manner);
    const media::Pcm sound = media::noise(frames);
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(speed));
    QCOMPARE(play(Item(sound), card, manner), ended());
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

/// The pieces of noise, which has no zero byte itself, between gaps of silence.
static QByteArrayList pieces(const QByteArray& recorded)
{
    QByteArrayList all = recorded.split('\0');
    all.removeAll(QByteArray());
    return all;
}

/// Whether the pieces are the beginning of a sound, its end and parts between them in their order,
/// and something of it is missing.
static bool isSkipped(const QByteArrayList& recorded, const QByteArray& sound)
{
    int end = 0;
    for (const QByteArray& piece : recorded) {
        const int begin = sound.indexOf(piece, end);
        if (begin < 0) {
            return false;
        }
        end = begin + piece.size();
    }
    return !recorded.isEmpty() && sound.startsWith(recorded.first()) && end == sound.size() &&
           recorded.join().size() < sound.size();
}

/// Plays an item from two writers that overlap: the second one begins when the card has played all
/// that the first one wrote.
static QStringList playWithAGap(const Item& item, const VirtualCard& card)
{
    const int half = 90000; // enough for the sink's start
    SourcePlayer player(Source::stream(), item, card.device());
    player->startPlayback();
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    PipeWriter first(item.fifo, item.bytes.left(half), manner);
    waitFor([&card] { return QFileInfo(card.recordPath()).size() > 2 * half; });
    PipeWriter second(item.fifo, item.bytes.mid(half));
    second.waitForOpened();
    first.close();
    return player.finish();
}

void TestStream::samplesWithTimesThatComeTooLateAreSkipped()
{
    const media::Pcm sound = media::noise(144000);
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(1.0));
    QCOMPARE(playWithAGap(itemOf(media::endlessWavBytes(sound)), card), ended());
    const QByteArrayList recorded = pieces(card.samples());
    QVERIFY(recorded.size() > 1);
    // Behind the gap goes on what is not too late by then.
    QVERIFY(isSkipped(recorded, sound.samples));
}

static QString rawCaps(const char* format, const char* shape)
{
    return QStringLiteral("audio/x-unaligned-raw,format=%1,rate=48000,layout=interleaved,%2")
        .arg(format, shape);
}

void TestStream::samplesWithoutTimesAreNeverTooLate()
{
    const media::Pcm sound = media::noise(72000);
    const QByteArray silence(2 * usualBuffer * sound.frameSize(), '\0');
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(1.0));
    QCOMPARE(playWithAGap(itemOf(sound.samples + silence, rawCaps("S16LE", "channels=2")), card),
             ended());
    const QByteArrayList recorded = pieces(card.samples());
    QVERIFY(recorded.size() > 1);
    QCOMPARE(media::difference(recorded.join(), sound.samples), QString());
}

// ---- Raw samples and caps ----------------------------------------------------------------------

void TestStream::rawSamplesNeedSilenceForTwoBuffers_data()
{
    QTest::addColumn<QString>("caps");
    QTest::addColumn<SampleFormat>("format");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("chunk");
    QTest::newRow("S16LE mono") << rawCaps("S16LE", "channels=1") << SampleFormat::S16 << 1 << 4097;
    QTest::newRow("S24LE, 6 channels") << rawCaps("S24LE", "channels=6,channel-mask=(bitmask)0x3f")
                                       << SampleFormat::S24 << 6 << 1237;
}

void TestStream::rawSamplesNeedSilenceForTwoBuffers()
{
    QFETCH(QString, caps);
    QFETCH(SampleFormat, format);
    QFETCH(int, channels);
    QFETCH(int, chunk);
    const media::Pcm sound = media::noise(format, 48000, channels, 48000);
    const QByteArray silence(2 * usualBuffer * sound.frameSize(), '\0');
    PipeWriter::Manner manner;
    manner.chunk = chunk;
    // However slow the card, the sound is through when the silence is in the buffers.
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(1.0));
    QCOMPARE(play(itemOf(sound.samples + silence, caps), card, manner), ended());
    QCOMPARE(bufferOf(card), usualBuffer);
    QCOMPARE(media::difference(card.samples(), sound.samples, sound.frameSize()), QString());
}

void TestStream::rawSamplesLoseTwoBuffers()
{
    // The end is reported when the last sample is in the buffers, and a stop discards them. The
    // card stalls, so that nothing of them is played before.
    const int playedFrames = 4800;
    const media::Pcm sound =
        media::noise(SampleFormat::S16, 48000, 1, playedFrames + 2 * usualBuffer);
    const VirtualCard card("card", VirtualCard::Settings::stallingAfter(playedFrames));
    QCOMPARE(play(itemOf(sound.samples, rawCaps("S16LE", "channels=1")), card), ended());
    QCOMPARE(media::difference(card.samples(), sound.first(playedFrames), sound.frameSize()),
             QString());
}

void TestStream::trueOrInvalidCapsAreAccepted_data()
{
    QTest::addColumn<QString>("caps");
    QTest::newRow("true") << "audio/x-wav";
    QTest::newRow("not to be parsed") << "no caps at all, =";
    QTest::newRow("unfinished") << "audio/x-wav,rate=(int";
}

void TestStream::trueOrInvalidCapsAreAccepted()
{
    QFETCH(QString, caps);
    const media::Pcm sound = media::noise(24000);
    const VirtualCard card("card");
    QCOMPARE(play(itemOf(media::wavBytes(sound), caps), card), ended());
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

void TestStream::wrongCapsAreReported_data()
{
    QTest::addColumn<QString>("caps");
    QTest::newRow("Ogg") << "application/ogg";
    QTest::newRow("FLAC") << "audio/x-flac";
    QTest::newRow("video") << "video/x-raw";
    QTest::newRow("not fixed") << "ANY";
}

void TestStream::wrongCapsAreReported()
{
    QFETCH(QString, caps);
    // GStreamer complains of caps that are not fixed, and goes on.
    const guint ignoring = g_log_set_handler(
        "GStreamer", G_LOG_LEVEL_CRITICAL,
        [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    const media::Pcm sound = media::noise(24000);
    const VirtualCard card("card");
    const QStringList outcomes = play(itemOf(media::wavBytes(sound), caps), card);
    g_log_remove_handler("GStreamer", ignoring);
    QCOMPARE(outcomes.size(), 1);
    QVERIFY2(outcomes.first().startsWith("error token: "), qPrintable(outcomes.first()));
    QCOMPARE(card.frames(), 0);
}

// ---- Amounts of data ---------------------------------------------------------------------------

/// The memory of this process that is in use, in KiB.
static qint64 residentKiB()
{
    for (const QByteArray& line : media::readFile("/proc/self/status").split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6, line.size() - 9).trimmed().toLongLong();
        }
    }
    return -1;
}

/// How a recording differs from noise that is played so many times; empty when it does not. Silence
/// counts for nothing. Looks at one part after the other: all together may not fit into memory.
static QString differenceFromRepeated(const QString& recording, const QByteArray& noise, int times)
{
    QFile file(recording);
    if (!file.open(QIODevice::ReadOnly)) {
        return file.errorString();
    }
    file.seek(file.peek(100).indexOf("data") + 8);
    QByteArray recorded;
    int time = 0;
    while (!file.atEnd()) {
        QByteArray part = file.read(noise.size());
        part.truncate(int(std::remove(part.begin(), part.end(), '\0') - part.begin()));
        recorded += part;
        if (recorded.size() >= noise.size()) {
            const QString here = media::difference(recorded.left(noise.size()), noise, 1);
            if (!here.isEmpty()) {
                return QStringLiteral("time %1: ").arg(time) + here;
            }
            recorded.remove(0, noise.size());
            ++time;
        }
    }
    return time == times && recorded.isEmpty()
               ? QString()
               : QStringLiteral("%1 times and %2 bytes were recorded")
                     .arg(time)
                     .arg(recorded.size());
}

void TestStream::fastWriterWaitsAndMemoryStays_data()
{
    // 1 GiB takes about a minute and as much room in the temporary folder.
    const int mebibytes = isLongRun() ? 1024 : 96;
    QTest::addColumn<int>("times");
    QTest::addColumn<bool>("hasTimes");
    // Samples without times are played however late they come: on a machine that is too busy for
    // the card there may be gaps between them, but what is missing would be lost on its way.
    QTest::newRow("raw samples") << mebibytes / 2 << false;
    // Samples with times that come too late are left out by the sink.
    if (isLongRun()) {
        QTest::newRow("WAV of unknown length") << mebibytes / 2 << true;
    }
}

void TestStream::fastWriterWaitsAndMemoryStays()
{
    QFETCH(int, times);
    QFETCH(bool, hasTimes);
    // Each second of sound has many bytes, 2 MiB are written again and again.
    const media::Pcm sound = media::noise(SampleFormat::S32, 192000, 8, 65536);
    const QByteArray bytes = hasTimes ? media::endlessWavBytes(sound) : sound.samples;
    const int buffer = sound.rate / 5;
    PipeWriter::Manner manner;
    manner.times = times;
    manner.header = bytes.size() - sound.samples.size();
    manner.silence = 2 * buffer * sound.frameSize();
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(200.0));
    const QString caps = hasTimes ? ""
                                  : "audio/x-unaligned-raw,format=S32LE,rate=192000,channels=8,"
                                    "channel-mask=(bitmask)0xc3f,layout=interleaved";
    SourcePlayer player(Source::stream(), itemOf(bytes, caps), card.device());
    QVERIFY(player.start(manner));
    const auto recorded = [&card] { return QFileInfo(card.recordPath()).size(); };
    // By then all queues are full: they hold a second and a half.
    const qint64 twoSeconds = 2 * sound.rate * sound.frameSize();
    QVERIFY(waitFor([&] { return recorded() > twoSeconds; }));
    const qint64 before = residentKiB();
    qint64 peak = before;
    // Each part has its own time limit, so that there is none for the whole.
    for (qint64 part = 0; player.outcomes().isEmpty(); part += sound.samples.size()) {
        QVERIFY(waitFor([&] {
            peak = qMax(peak, residentKiB());
            return recorded() > part || !player.outcomes().isEmpty();
        }));
    }
    QCOMPARE(player.finish(), ended());
    QVERIFY(player.writer->waitForFinished());
    // The sanitizers keep what was freed.
    const bool isSanitized = isSlowBuild() && !qEnvironmentVariableIsSet("KOVA_EMULATOR");
    QVERIFY2(isSanitized || peak - before < 16 * 1024, qPrintable(QString::number(peak - before)));
    QCOMPARE(differenceFromRepeated(card.recordPath(), sound.samples, manner.times), QString());
}

KOVA_TEST(TestStream)
#include "tst_stream.moc"
