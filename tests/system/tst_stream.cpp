#include "kit/Holdings.h"
#include "kit/Media.h"
#include "kit/PipeWriter.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <glib.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

using media::SampleFormat;

Q_DECLARE_METATYPE(PipeWriter::Manner)

/// What arrives at the sound card from other processes that write into a named pipe.
///
/// GStreamer's sink holds up to two buffers of sound: one of its own and that of the card. Both are
/// filled at the start and both are still to be played when the last sample leaves the decoder.
class TestStream : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void losslessFormatArrivesBitExact_data();
    void losslessFormatArrivesBitExact();
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
    void capsThatHelpOrSayNothing_data();
    void capsThatHelpOrSayNothing();
    void capsThatLieAreReported_data();
    void capsThatLieAreReported();

    void writersThatOverlapAreOneStream();
    void writerAfterTheEndFindsNoReader();
    void killedWriterEndsTheStream();
    void writerBeforeThePlayerIsHeard();
    void writerBeforeTheStartIsNeverHeard();
    void writerThatNeverComesCanBeStopped();
    void writerThatWritesNothingEndsTheStream();
    void writerBehindTheEndOfTheItemCanBeReleased();
    void removedPipeGoesOnWhileOpen();
    void pathWithoutAPipeIsOnlyStopped_data();
    void pathWithoutAPipeIsOnlyStopped();

    void fastWriterWaitsAndMemoryStays_data();
    void fastWriterWaitsAndMemoryStays();
    void pausedPlayerLetsTheWriterWait();
    void cardThatStandsStillLetsTheWriterWait();

    void destroyedLaterIsSilent_data();
    void destroyedLaterIsSilent();
    void quickRoundsLeaveNothing();

private:
    QString fifo;
};

// ---- What all tests share ----------------------------------------------------------------------

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

static StreamSimplePlayer* newPlayer(const QString& fifo, const VirtualCard& card,
                                     const QString& caps = QString())
{
    return new StreamSimplePlayer(fifo, caps, QStringLiteral("token"), card.device());
}

/// A card that plays as fast as hardware does.
static VirtualCard::Settings realTime()
{
    VirtualCard::Settings settings;
    settings.speed = 1.0;
    return settings;
}

/// A card that plays its first frames and then stands still.
static VirtualCard::Settings stallingAfter(qint64 frames)
{
    VirtualCard::Settings settings;
    settings.stallAfter = frames;
    return settings;
}

/// What a player of one stream reports from its start to its end.
static QStringList play(const QString& fifo, const QByteArray& bytes, const VirtualCard& card,
                        const PipeWriter::Manner& manner = PipeWriter::Manner(),
                        const QString& caps = QString())
{
    PlayerProbe probe(newPlayer(fifo, card, caps));
    probe->startPlayback();
    PipeWriter writer(fifo, bytes, manner);
    return probe.finish();
}

/// Everything that a card has played but silence at the end.
static QByteArray heardOn(const VirtualCard& card, int frameSize)
{
    return media::withoutTrailingSilence(card.samples(), frameSize);
}

/// How what was heard differs from what it should be; empty when it does not.
static QString difference(const QByteArray& heard, const QByteArray& expected)
{
    if (heard == expected) {
        return QString();
    }
    const auto differing =
        std::mismatch(heard.begin(), heard.end(), expected.begin(), expected.end());
    return QStringLiteral(
               "%1 bytes were heard instead of %2, and byte %3 is the first that differs")
        .arg(heard.size())
        .arg(expected.size())
        .arg(differing.first - heard.begin());
}

/// The header of a WAV file.
static constexpr int wavHeaderSize = 44;

/// A WAV file as a program writes it that does not know its length yet.
static QByteArray endlessWav(const media::Pcm& sound)
{
    QByteArray wav = media::wavBytes(sound);
    wav.replace(4, 4, QByteArray(4, '\xff'));
    wav.replace(40, 4, QByteArray(4, '\xff'));
    return wav;
}

/// The frames of the card's own buffer; 0 if nobody has set it up.
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

/// Whether a sanitizer watches this process.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr bool isSanitized = true;
#else
static constexpr bool isSanitized = false;
#endif

void TestStream::initTestCase()
{
    fifo = TestProcess::path(QStringLiteral("fifo"));
}

void TestStream::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- Formats -----------------------------------------------------------------------------------

void TestStream::losslessFormatArrivesBitExact_data()
{
    QTest::addColumn<QString>("kind");
    for (const char* kind : {"wav", "endless wav", "flac"}) {
        QTest::newRow(kind) << QString(kind);
    }
}

void TestStream::losslessFormatArrivesBitExact()
{
    QFETCH(QString, kind);
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 48000);
    const QByteArray bytes =
        kind == "wav" ? media::wavBytes(sound)
        : kind == "endless wav"
            ? endlessWav(sound)
            : media::readFile(media::encode("whole.flac", media::writeWav("whole.wav", sound)));
    VirtualCard card("card");
    QCOMPARE(play(fifo, bytes, card), ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
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

/// What is heard of a file.
static QByteArray heardOfFile(const QString& path)
{
    VirtualCard card("file");
    PlayerProbe probe(new UriSimplePlayer(path, QStringLiteral("token"), card.device()));
    probe->startPlayback();
    return probe.finish() == ended() ? heardOn(card, 4) : QByteArray();
}

void TestStream::livePrograms()
{
    QFETCH(QString, program);
    QFETCH(QString, caps);
    const QString input =
        media::writeWav("input.wav", media::noise(SampleFormat::S16, 48000, 2, 48000));
    QByteArray expected = caps.isEmpty()
                              ? heardOfFile(media::writeFile("stored", outputOf(program, input)))
                              : media::readFile(input).mid(wavHeaderSize);
    QVERIFY(expected.size() > 150000);
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card, caps));
    QVERIFY(probe->startPlayback());
    QProcess encoder;
    startProgram(encoder, program, input, fifo);
    QCOMPARE(probe.finish(), ended());
    QVERIFY(encoder.state() == QProcess::NotRunning || encoder.waitForFinished());
    QCOMPARE(encoder.exitCode(), 0);
    QCOMPARE(difference(heardOn(card, 4), expected), QString());
}

void TestStream::liveSpeechArrivesButForOneFrame()
{
    const QString program = QStringLiteral("espeak-ng --stdout 'One two three'");
    const QByteArray wav = outputOf(program, QProcess::nullDevice());
    QByteArray spoken = media::withoutTrailingSilence(wav.mid(wavHeaderSize), 2);
    QVERIFY(spoken.size() > 20000);
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    QProcess speaker;
    startProgram(speaker, program, QProcess::nullDevice(), fifo);
    QCOMPARE(probe.finish(), ended());
    const QByteArray heard = heardOn(card, 2);
    // At 22050 Hz the times of the first block are rounded such that GStreamer's sink leaves out
    // its first frame, in a bare pipeline, too.
    if (heard.size() < spoken.size()) {
        spoken.remove(0, 2);
    }
    QCOMPARE(difference(heard, spoken), QString());
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
    // Each burst is heard for 260 ms and followed by the next one after 100 ms. Before them the
    // sink takes two buffers without waiting, 76800 bytes: what it does not get in time it replaces
    // by silence, in a bare pipeline, too.
    row("bursts", 96000, 1.0, 90000, 50001, 100);
}

void TestStream::mannerOfWritingDoesNotMatter()
{
    QFETCH(int, frames);
    QFETCH(double, speed);
    QFETCH(PipeWriter::Manner, manner);
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, frames);
    VirtualCard::Settings settings;
    settings.speed = speed;
    VirtualCard card("card", settings);
    QCOMPARE(play(fifo, media::wavBytes(sound), card, manner), ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

/// The pieces of noise, which has no zero byte itself, between gaps of silence.
static QByteArrayList pieces(const QByteArray& heard)
{
    QByteArrayList all = heard.split('\0');
    all.removeAll(QByteArray());
    return all;
}

/// How many bytes of a sound were left out between gaps; -1 if what was heard is anything else than
/// its beginning, its end and pieces in between, each once and in their order.
static int leftOut(const QByteArrayList& heard, const QByteArray& sound)
{
    int end = 0;
    for (const QByteArray& piece : heard) {
        const int begin = sound.indexOf(piece, end);
        if (begin < 0) {
            return -1;
        }
        end = begin + piece.size();
    }
    const bool whole = !heard.isEmpty() && sound.startsWith(heard.first()) && end == sound.size();
    return whole ? sound.size() - heard.join().size() : -1;
}

/// Plays bytes from two writers that overlap: the second one begins when so much more sound than
/// what the first one wrote was to be heard that the card ran dry.
static QStringList playWithAGap(const QString& fifo, const QByteArray& bytes,
                                const VirtualCard& card, const QString& caps = QString())
{
    const int half = 90000; // enough for the sink's start
    PlayerProbe probe(newPlayer(fifo, card, caps));
    probe->startPlayback();
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    PipeWriter first(fifo, bytes.left(half), manner);
    waitFor([&card] { return QFileInfo(card.recordPath()).size() > 2 * half; });
    PipeWriter second(fifo, bytes.mid(half));
    second.waitForOpened();
    first.close();
    return probe.finish();
}

void TestStream::samplesWithTimesThatComeTooLateAreSkipped()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 144000);
    VirtualCard card("card", realTime());
    QCOMPARE(playWithAGap(fifo, endlessWav(sound), card), ended());
    const QByteArrayList heard = pieces(heardOn(card, sound.frameSize()));
    QVERIFY(heard.size() > 1);
    // Behind the gap goes on what is not too late by then.
    QVERIFY(leftOut(heard, sound.samples) > 0);
}

static QString rawCaps(const char* format, const char* shape)
{
    return QStringLiteral("audio/x-unaligned-raw,format=%1,rate=48000,layout=interleaved,%2")
        .arg(format, shape);
}

void TestStream::samplesWithoutTimesAreNeverTooLate()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 72000);
    const QByteArray silence(2 * usualBuffer * sound.frameSize(), '\0');
    VirtualCard card("card", realTime());
    QCOMPARE(playWithAGap(fifo, sound.samples + silence, card, rawCaps("S16LE", "channels=2")),
             ended());
    const QByteArrayList heard = pieces(heardOn(card, sound.frameSize()));
    QVERIFY(heard.size() > 1);
    QCOMPARE(difference(heard.join(), sound.samples), QString());
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
    VirtualCard card("card", realTime());
    QCOMPARE(play(fifo, sound.samples + silence, card, manner, caps), ended());
    QCOMPARE(bufferOf(card), usualBuffer);
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

void TestStream::rawSamplesLoseTwoBuffers()
{
    // The end is reported when the last sample is in the buffers, and a stop empties them. The card
    // stands still, so that nothing of them is heard meanwhile.
    const int heardFrames = 4800;
    const media::Pcm sound =
        media::noise(SampleFormat::S16, 48000, 1, heardFrames + 2 * usualBuffer);
    VirtualCard card("card", stallingAfter(heardFrames));
    QCOMPARE(play(fifo, sound.samples, card, PipeWriter::Manner(), rawCaps("S16LE", "channels=1")),
             ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()),
                        sound.samples.left(heardFrames * sound.frameSize())),
             QString());
}

void TestStream::capsThatHelpOrSayNothing_data()
{
    QTest::addColumn<QString>("caps");
    QTest::newRow("true") << "audio/x-wav";
    QTest::newRow("not to be parsed") << "no caps at all, =";
    QTest::newRow("unfinished") << "audio/x-wav,rate=(int";
}

void TestStream::capsThatHelpOrSayNothing()
{
    QFETCH(QString, caps);
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 24000);
    VirtualCard card("card");
    QCOMPARE(play(fifo, media::wavBytes(sound), card, PipeWriter::Manner(), caps), ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

void TestStream::capsThatLieAreReported_data()
{
    QTest::addColumn<QString>("caps");
    QTest::newRow("Ogg") << "application/ogg";
    QTest::newRow("FLAC") << "audio/x-flac";
    QTest::newRow("video") << "video/x-raw";
    QTest::newRow("not fixed") << "ANY";
}

void TestStream::capsThatLieAreReported()
{
    QFETCH(QString, caps);
    // GStreamer complains of caps that are not fixed, and goes on.
    const guint ignoring = g_log_set_handler(
        "GStreamer", G_LOG_LEVEL_CRITICAL,
        [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 24000);
    VirtualCard card("card");
    const QStringList outcomes =
        play(fifo, media::wavBytes(sound), card, PipeWriter::Manner(), caps);
    g_log_remove_handler("GStreamer", ignoring);
    QCOMPARE(outcomes.size(), 1);
    QVERIFY2(outcomes.first().startsWith("error token: "), qPrintable(outcomes.first()));
    QCOMPARE(card.frames(), 0);
}

// ---- Writers -----------------------------------------------------------------------------------

void TestStream::writersThatOverlapAreOneStream()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 24000);
    const QByteArray bytes = media::wavBytes(sound);
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    // Less than a pipe holds: the writers need no event loop of ours.
    PipeWriter first(fifo, bytes.left(50000), manner);
    QVERIFY(first.waitForWritten());
    PipeWriter second(fifo, bytes.mid(50000));
    QVERIFY(second.waitForOpened());
    QVERIFY(first.close());
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

/// Whether this process has a file open.
static bool isOpen(const QString& path)
{
    for (const QFileInfo& file : QDir("/proc/self/fd").entryInfoList(QDir::Files | QDir::System)) {
        if (file.symLinkTarget() == path) {
            return true;
        }
    }
    return false;
}

/// Whether a writer would find the FIFO open for reading.
static bool hasReader(const QString& fifo)
{
    const int end = ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (end >= 0) {
        ::close(end);
    }
    return end >= 0;
}

void TestStream::writerAfterTheEndFindsNoReader()
{
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    // A container that tells its length would end before its writer does.
    PipeWriter first(fifo, endlessWav(media::noise(SampleFormat::S16, 48000, 2, 4800)));
    QVERIFY(probe.waitForOutcome());
    QVERIFY(first.waitForFinished());
    QVERIFY(!hasReader(fifo));
    // A further start of the same player does not open the pipe again.
    QVERIFY(probe->stopPlayback());
    QVERIFY(probe->startPlayback());
    QVERIFY(!hasReader(fifo));
    QCOMPARE(probe.finish(), ended());
}

/// Waits until a writer can write no more because this thread, which runs the reader, does not
/// read.
/// @return how much it has written then, -1 if it does not stop
static qint64 waitUntilFull(const PipeWriter& writer)
{
    const QDeadlineTimer deadline(patience);
    while (!deadline.hasExpired()) {
        const qint64 before = writer.written();
        if (writer.isAsleep() && writer.written() == before) {
            return before;
        }
        QThread::yieldCurrentThread();
    }
    return -1;
}

void TestStream::killedWriterEndsTheStream()
{
    // Far more than what the pipe, the source and the queues behind the decoder hold together.
    const media::Pcm sound = media::noise(SampleFormat::S16, 192000, 2, 6 * 1024 * 1024);
    const QByteArray bytes = endlessWav(sound);
    PipeWriter::Manner manner;
    manner.chunk = PipeWriter::atomic;
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, bytes, manner);
    QVERIFY(writer.waitForOpened());
    QVERIFY(waitFor([&card] { return card.has("first-frame"); }));
    const qint64 written = waitUntilFull(writer);
    QVERIFY(written > 0 && written < bytes.size());
    QVERIFY(writer.isRunning());
    QVERIFY(writer.kill());
    QCOMPARE(probe.finish(), ended());
    // What the writer has written is heard, to the last sample.
    QCOMPARE(difference(heardOn(card, sound.frameSize()),
                        bytes.mid(wavHeaderSize, int(written) - wavHeaderSize)),
             QString());
}

void TestStream::writerBeforeThePlayerIsHeard()
{
    const QString awaited = TestProcess::path("awaited");
    QCOMPARE(::mkfifo(QFile::encodeName(awaited).constData(), 0600), 0);
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 48000);
    PipeWriter writer(awaited, media::wavBytes(sound));
    QVERIFY(waitFor([&writer] { return writer.isAsleep(); }));
    VirtualCard card("card");
    // Between the two lines nothing is read, so that nothing is lost.
    PlayerProbe probe(newPlayer(awaited, card));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(writer.waitForFinished());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

void TestStream::writerBeforeTheStartIsNeverHeard()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 4800);
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    PipeWriter writer(fifo, media::wavBytes(sound), manner);
    QVERIFY(writer.waitForWritten());
    deliverQueuedEvents();
    QVERIFY(probe->startPlayback());
    QVERIFY(!hasReader(fifo));
    QVERIFY(writer.close());
    deliverQueuedEvents();
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), QStringList("stopped token"));
    QCOMPARE(card.frames(), 0);
}

void TestStream::writerThatNeverComesCanBeStopped()
{
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    deliverQueuedEvents();
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), QStringList("stopped token"));
    QVERIFY(QFile::exists(fifo));
}

void TestStream::writerThatWritesNothingEndsTheStream()
{
    VirtualCard card("card");
    const QStringList outcomes = play(fifo, QByteArray(), card);
    QCOMPARE(outcomes, QStringList("error token: Stream doesn't contain enough data."));
    QCOMPARE(card.frames(), 0);
}

void TestStream::writerBehindTheEndOfTheItemCanBeReleased()
{
    // The header tells the length, and what stands behind is no sound.
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 24000);
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, media::wavBytes(sound) + QByteArray(1 << 20, 'x'));
    QVERIFY(probe.waitForOutcome());
    QVERIFY(writer.isRunning());
    QVERIFY(probe->stopPlayback());
    QVERIFY(!writer.waitForFinished());
    QVERIFY(!writer.isRunning());
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

void TestStream::removedPipeGoesOnWhileOpen()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 48000);
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, media::wavBytes(sound));
    QVERIFY(writer.waitForOpened());
    QVERIFY(QFile::remove(fifo));
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(difference(heardOn(card, sound.frameSize()), sound.samples), QString());
}

void TestStream::pathWithoutAPipeIsOnlyStopped_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("empty") << QString();
    QTest::newRow("folder that is not there") << TestProcess::path("missing/fifo");
    QTest::newRow("regular file") << media::writeWav(
        "regular.wav", media::noise(SampleFormat::S16, 48000, 2, 4800));
    QTest::newRow("directory") << TestProcess::path();
}

void TestStream::pathWithoutAPipeIsOnlyStopped()
{
    QFETCH(QString, path);
    const bool isFile = path.endsWith(".wav");
    const QByteArray content = isFile ? media::readFile(path) : QByteArray();
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(path, card));
    QVERIFY(probe->startPlayback());
    deliverQueuedEvents();
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(!isOpen(path));
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), QStringList("stopped token"));
    QCOMPARE(card.frames(), 0);
    if (isFile) {
        QCOMPARE(media::readFile(path), content);
    }
}

// ---- The writer waits --------------------------------------------------------------------------

/// Waits until a writer sleeps although the loop turns: an enabled reader would read in each turn.
/// @return how much the writer has written then, -1 if it is never held
static qint64 waitUntilHeld(const PipeWriter& writer)
{
    qint64 last = -1;
    int turns = 0;
    const bool held = waitFor([&] {
        const qint64 now = writer.written();
        turns = writer.isAsleep() && now == last ? turns + 1 : 0;
        last = now;
        deliverQueuedEvents();
        return turns >= 100;
    });
    return held ? last : -1;
}

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
    QByteArray heard;
    int time = 0;
    while (!file.atEnd()) {
        QByteArray part = file.read(noise.size());
        part.truncate(int(std::remove(part.begin(), part.end(), '\0') - part.begin()));
        heard += part;
        if (heard.size() >= noise.size()) {
            const QString here = difference(heard.left(noise.size()), noise);
            if (!here.isEmpty()) {
                return QStringLiteral("time %1: ").arg(time) + here;
            }
            heard.remove(0, noise.size());
            ++time;
        }
    }
    return time == times && heard.isEmpty()
               ? QString()
               : QStringLiteral("%1 times and %2 bytes were heard").arg(time).arg(heard.size());
}

/// Whether a test may take its time and the machine is quiet: KOVA_LONG_TESTS=1 in the environment.
static bool isLong()
{
    return qEnvironmentVariableIntValue("KOVA_LONG_TESTS") > 0;
}

void TestStream::fastWriterWaitsAndMemoryStays_data()
{
    // 1 GiB takes about a minute and as much room in the temporary folder.
    const int mebibytes = isLong() ? 1024 : 96;
    QTest::addColumn<int>("times");
    QTest::addColumn<bool>("hasTimes");
    // Samples without times are played however late they come: on a machine that is too busy for
    // the card there may be gaps between them, but what is missing would be lost on its way.
    QTest::newRow("raw samples") << mebibytes / 2 << false;
    // Samples with times that come too late are left out by the sink.
    if (isLong()) {
        QTest::newRow("WAV of unknown length") << mebibytes / 2 << true;
    }
}

void TestStream::fastWriterWaitsAndMemoryStays()
{
    QFETCH(int, times);
    QFETCH(bool, hasTimes);
    // Each second of sound has many bytes, 2 MiB are written again and again.
    const media::Pcm sound = media::noise(SampleFormat::S32, 192000, 8, 65536);
    const QByteArray item = hasTimes ? endlessWav(sound) : sound.samples;
    const int buffer = sound.rate / 5;
    PipeWriter::Manner manner;
    manner.times = times;
    manner.header = item.size() - sound.samples.size();
    manner.silence = 2 * buffer * sound.frameSize();
    VirtualCard::Settings settings;
    settings.speed = 200.0;
    VirtualCard card("card", settings);
    PlayerProbe probe(newPlayer(fifo, card,
                                hasTimes ? ""
                                         : "audio/x-unaligned-raw,format=S32LE,rate=192000,"
                                           "channels=8,channel-mask=(bitmask)0xc3f,"
                                           "layout=interleaved"));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, item, manner);
    const auto heard = [&card] { return QFileInfo(card.recordPath()).size(); };
    // By then all queues are full: they hold a second and a half.
    const qint64 twoSeconds = 2 * sound.rate * sound.frameSize();
    QVERIFY(waitFor([&] { return heard() > twoSeconds; }));
    const qint64 before = residentKiB();
    qint64 peak = before;
    // Each part has its own time limit, so that there is none for the whole.
    for (qint64 part = 0; probe.outcomes.all.isEmpty(); part += sound.samples.size()) {
        QVERIFY(waitFor([&] {
            peak = qMax(peak, residentKiB());
            return heard() > part || !probe.outcomes.all.isEmpty();
        }));
    }
    QCOMPARE(probe.finish(), ended());
    QVERIFY(writer.waitForFinished());
    // The sanitizers keep what was freed.
    QVERIFY2(isSanitized || peak - before < 16 * 1024, qPrintable(QString::number(peak - before)));
    QCOMPARE(differenceFromRepeated(card.recordPath(), sound.samples, manner.times), QString());
}

void TestStream::pausedPlayerLetsTheWriterWait()
{
    // Far more than what the pipe, the source and the queues behind the decoder hold together.
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 1024 * 1024);
    const QByteArray bytes = endlessWav(sound);
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, bytes);
    QVERIFY(writer.waitForOpened());
    QVERIFY(waitFor([&card] { return card.frames() > 4 * usualBuffer; }));
    QVERIFY(probe->pausePlayback());
    const qint64 held = waitUntilHeld(writer);
    QVERIFY(held > 0 && held < bytes.size());
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(writer.waitForFinished());
    // On a busy machine the sink may go on with a period of silence instead of sound.
    const int missing = leftOut(pieces(heardOn(card, sound.frameSize())), sound.samples);
    const int period = usualBuffer / 20 * sound.frameSize();
    QVERIFY2(missing >= 0 && missing <= 2 * period, qPrintable(QString::number(missing)));
}

void TestStream::cardThatStandsStillLetsTheWriterWait()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 4 * 1024 * 1024);
    const QByteArray bytes = endlessWav(sound);
    const int heardFrames = 4800;
    VirtualCard card("card", stallingAfter(heardFrames));
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, bytes);
    QVERIFY(writer.waitForOpened());
    QVERIFY(waitFor([&card] { return card.frames() == heardFrames; }));
    const qint64 held = waitUntilHeld(writer);
    QVERIFY(held > 0 && held < bytes.size());
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(writer.isRunning());
    QVERIFY(probe->stopPlayback());
    QVERIFY(!writer.waitForFinished()); // it has lost its reader
    QVERIFY(!writer.isRunning());
    QCOMPARE(probe.finish(), QStringList("stopped token"));
    QCOMPARE(difference(heardOn(card, sound.frameSize()),
                        sound.samples.left(heardFrames * sound.frameSize())),
             QString());
}

// ---- Destruction -------------------------------------------------------------------------------

namespace {

/// A player whose writer has more to write than the player takes.
struct LateState
{
    VirtualCard::Settings card;
    bool isEndless; ///< whether the item goes on for as long as its writer writes
    QStringList outcomes;
    /// Brings the player into the state, from the moment when sound is heard.
    bool (*enter)(PlayerProbe& probe, PipeWriter& writer);
};

} // namespace
Q_DECLARE_METATYPE(LateState)

void TestStream::destroyedLaterIsSilent_data()
{
    QTest::addColumn<LateState>("state");
    const auto row = [](const char* name, const VirtualCard::Settings& card, bool isEndless,
                        const QStringList& outcomes, bool (*enter)(PlayerProbe&, PipeWriter&)) {
        QTest::newRow(name) << LateState{card, isEndless, outcomes, enter};
    };
    row("playing", realTime(), true, {},
        [](PlayerProbe&, PipeWriter& writer) { return waitUntilFull(writer) > 0; });
    row("paused", realTime(), true, {}, [](PlayerProbe& probe, PipeWriter& writer) {
        return probe->pausePlayback() && waitUntilHeld(writer) > 0;
    });
    row("held", stallingAfter(4800), true, {},
        [](PlayerProbe&, PipeWriter& writer) { return waitUntilHeld(writer) > 0; });
    row("ended", VirtualCard::Settings(), false, ended(),
        [](PlayerProbe& probe, PipeWriter& writer) {
            return probe.waitForOutcome() && writer.isRunning();
        });
    row("stopped", realTime(), true, {"stopped token"}, [](PlayerProbe& probe, PipeWriter&) {
        return probe->stopPlayback() && probe.waitForOutcome();
    });
    VirtualCard::Settings vanishing;
    vanishing.vanishAfter = 4800;
    row("failed", vanishing, true, {"error token"},
        [](PlayerProbe& probe, PipeWriter&) { return probe.waitForOutcome(); });
}

void TestStream::destroyedLaterIsSilent()
{
    QFETCH(LateState, state);
    const media::Pcm sound =
        media::noise(SampleFormat::S16, 48000, 2, state.isEndless ? 4 * 1024 * 1024 : 24000);
    // What stands behind an item that tells its length is no sound.
    const QByteArray bytes =
        state.isEndless ? endlessWav(sound) : media::wavBytes(sound) + QByteArray(1 << 20, 'x');
    VirtualCard card("card", state.card);
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, bytes);
    QVERIFY(writer.waitForOpened());
    QVERIFY(waitFor([&card] { return card.has("first-frame"); }));
    QVERIFY(state.enter(probe, writer));
    probe.player.reset();
    QVERIFY(!hasReader(fifo));
    QVERIFY(!writer.waitForFinished()); // it has lost its reader
    QVERIFY(!writer.isRunning());
    QStringList outcomes = probe.destroy();
    outcomes.replaceInStrings(QRegularExpression(": .*"), QString()); // reasons are GStreamer's
    QCOMPARE(outcomes, state.outcomes);
}

// ---- Many players ------------------------------------------------------------------------------

/// One short life of a player, of another kind with each number.
static void liveShortly(const QString& fifo, const VirtualCard& card, int number)
{
    PlayerProbe probe(newPlayer(fifo, card));
    if (number % 4 == 0) {
        return;
    }
    QVERIFY(probe->startPlayback());
    int writer = -1;
    if (number % 4 >= 2) {
        writer = ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        const QByteArray bytes = media::wavBytes(media::noise(SampleFormat::S16, 48000, 2, 4800));
        QCOMPARE(::write(writer, bytes.constData(), std::size_t(bytes.size())),
                 ssize_t(bytes.size()));
        deliverQueuedEvents();
    }
    if (number % 4 == 3) {
        QVERIFY(probe->stopPlayback());
        deliverQueuedEvents();
    }
    QCOMPARE(probe.destroy(), number % 4 == 3 ? QStringList("stopped token") : QStringList());
    if (writer >= 0) {
        ::close(writer);
    }
}

/// Whether everything takes many times longer than usual here.
static bool isSlow()
{
    return isSanitized || qEnvironmentVariableIsSet("KOVA_EMULATOR");
}

void TestStream::quickRoundsLeaveNothing()
{
    VirtualCard card("card");
    for (int i = 0; i < 8; ++i) {
        liveShortly(fifo, card, i);
    }
    const int filesBefore = Holdings::countIn(TestProcess::path());
    const Holdings before = Holdings::now();
    const int rounds = isSlow() ? 200 : 4000;
    for (int i = 0; i < rounds; ++i) {
        liveShortly(fifo, card, i);
    }
    QCOMPARE(Holdings::countIn(TestProcess::path()), filesBefore);
    QVERIFY(waitFor([&before] { return Holdings::now().within(before); }));
}

KOVA_TEST(TestStream)
#include "tst_stream.moc"
