#include "support/Media.h"
#include "support/PipeWriter.h"
#include "support/PlayerProbe.h"
#include "support/TestProcess.h"
#include "support/VirtualCard.h"

#include <simplePlayer/StreamSimplePlayer.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <unistd.h>

using media::SampleFormat;

Q_DECLARE_METATYPE(media::SampleFormat)

/// What arrives at the sound card from other processes that write into a named pipe.
class TestStream : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void losslessFormatArrivesBitExact_data();
    void losslessFormatArrivesBitExact();
    void lossyFormatArrivesWhole_data();
    void lossyFormatArrivesWhole();
    void mannerOfWritingDoesNotMatter_data();
    void mannerOfWritingDoesNotMatter();
    void livePrograms_data();
    void livePrograms();
    void rawSamplesWithSilenceBehindArriveWhole_data();
    void rawSamplesWithSilenceBehindArriveWhole();
    void rawSamplesLoseNoMoreThanTheirTail();
    void writersThatOverlapAreOneStream();
    void writerAfterTheEndFindsNoReader();
    void killedWriterEndsTheStream();
    void writerBeforeTheStartIsNeverHeard();
    void writerThatNeverComesCanBeStopped();
    void removedPipeGoesOnWhileOpen();
    void pausedPlayerLetsTheWriterWait();
    void quickRoundsLeaveNothing();

private:
    QString fifo;
};

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

static StreamSimplePlayer* newPlayer(const QString& fifo, const VirtualCard& card)
{
    return new StreamSimplePlayer(fifo, QString(), QStringLiteral("token"), card.device());
}

/// A card that plays as fast as hardware does.
static VirtualCard::Settings realTime()
{
    VirtualCard::Settings settings;
    settings.speed = 1.0;
    return settings;
}

static QStringList play(const QString& fifo, const QByteArray& bytes, const VirtualCard& card,
                        const PipeWriter::Manner& manner = PipeWriter::Manner())
{
    PlayerProbe probe(newPlayer(fifo, card));
    probe->startPlayback();
    PipeWriter writer(fifo, bytes, manner);
    return probe.finish();
}

/// A WAV file as a program writes it that does not know its length yet.
static QByteArray endlessWav(const media::Pcm& sound)
{
    QByteArray wav = media::wavBytes(sound);
    wav.replace(4, 4, QByteArray(4, '\xff'));
    wav.replace(40, 4, QByteArray(4, '\xff'));
    return wav;
}

void TestStream::initTestCase()
{
    prepareLeakCheck();
    fifo = TestProcess::path(QStringLiteral("fifo"));
}

void TestStream::cleanup()
{
    QCOMPARE(leakedByPlayers(), QString());
}

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
    QVERIFY(media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestStream::lossyFormatArrivesWhole_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("Ogg Vorbis") << "tone.ogg";
    QTest::newRow("Opus") << "tone.opus";
    QTest::newRow("MP3") << "tone.mp3";
}

void TestStream::lossyFormatArrivesWhole()
{
    QFETCH(QString, name);
    const QString tone = media::writeWav("tone.wav", media::tone(48000, 2, 48000));
    VirtualCard card("card");
    QCOMPARE(play(fifo, media::readFile(media::encode(name, tone)), card), ended());
    media::Pcm heard{card.format() == "F32" ? SampleFormat::F32 : SampleFormat::S16,
                     card.rate(),
                     card.channels(),
                     {}};
    QCOMPARE(heard.rate, 48000);
    QCOMPARE(heard.channels, 2);
    heard.samples = media::withoutTrailingSilence(card.samples(), heard.frameSize());
    // An encoder may add or take the length of a block at either end.
    QVERIFY2(qAbs(heard.frames() - 48000) < 2400, qPrintable(QString::number(heard.frames())));
    QVERIFY(media::loudness(heard) > 0.2);
}

void TestStream::mannerOfWritingDoesNotMatter_data()
{
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("chunk");
    QTest::addColumn<int>("pauseMs");
    QTest::newRow("one byte at a time") << 2000 << 1 << 0;
    QTest::newRow("a trickle") << 4000 << 64 << 2;
    QTest::newRow("all at once") << 65536 << 262188 << 0;
}

void TestStream::mannerOfWritingDoesNotMatter()
{
    QFETCH(int, frames);
    QFETCH(int, chunk);
    QFETCH(int, pauseMs);
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, frames);
    PipeWriter::Manner manner;
    manner.chunk = chunk;
    manner.pauseMs = pauseMs;
    VirtualCard card("card");
    QCOMPARE(play(fifo, media::wavBytes(sound), card, manner), ended());
    QVERIFY(media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestStream::livePrograms_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<int>("frames");
    QTest::newRow("speech") << "espeak-ng --stdout 'One two three'" << 0;
    QTest::newRow("oggenc") << "oggenc -Q -o - - <\"$1\"" << 48000;
    QTest::newRow("ffmpeg") << "ffmpeg -v error -i - -f ogg -c:a libopus - <\"$1\"" << 48000;
}

/// The output of a shell command whose first argument is `input`.
static QByteArray outputOf(const QString& command, const QString& input)
{
    const QString path = TestProcess::path("output");
    media::run("sh", {"-c", "exec >\"$2\"; " + command, "sh", input, path});
    return media::readFile(path);
}

/// What remains when the first 44 bytes, the header of a WAV file, are taken away.
static QByteArray wavSamples(const QByteArray& wav)
{
    const QByteArray samples = wav.mid(44);
    return media::withoutTrailingSilence(samples, 2);
}

void TestStream::livePrograms()
{
    QFETCH(QString, program);
    QFETCH(int, frames);
    const QString tone = media::writeWav("tone.wav", media::tone(48000, 2, 48000));
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    QProcess encoder;
    encoder.start("sh", {"-c", "exec >\"$2\"; " + program, "sh", tone, fifo});
    QCOMPARE(probe.finish(), ended());
    QVERIFY(encoder.state() == QProcess::NotRunning || encoder.waitForFinished());
    QCOMPARE(encoder.exitCode(), 0);
    media::Pcm heard{card.format() == "F32" ? SampleFormat::F32 : SampleFormat::S16,
                     card.rate(),
                     card.channels(),
                     {}};
    heard.samples = media::withoutTrailingSilence(card.samples(), heard.frameSize());
    if (frames == 0) {
        const QByteArray spoken = wavSamples(outputOf(program, tone));
        const qint64 missing = spoken.size() - heard.samples.size();
        QVERIFY2(qAbs(missing) < 400 && !heard.samples.isEmpty(),
                 qPrintable(QString::number(missing)));
    } else {
        // An encoder may add or take the length of a block at either end.
        QVERIFY2(qAbs(heard.frames() - frames) < 2400, qPrintable(QString::number(heard.frames())));
    }
}

static QString rawCaps(const char* format, const char* shape)
{
    return QStringLiteral("audio/x-unaligned-raw,format=%1,rate=48000,layout=interleaved,%2")
        .arg(format, shape);
}

static QStringList playRaw(const QString& fifo, const QByteArray& bytes, const QString& caps,
                           const VirtualCard& card, int chunk)
{
    PlayerProbe probe(new StreamSimplePlayer(fifo, caps, QStringLiteral("token"), card.device()));
    probe->startPlayback();
    PipeWriter::Manner manner;
    manner.chunk = chunk;
    PipeWriter writer(fifo, bytes, manner);
    return probe.finish();
}

void TestStream::rawSamplesWithSilenceBehindArriveWhole_data()
{
    QTest::addColumn<QString>("caps");
    QTest::addColumn<SampleFormat>("format");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("chunk");
    QTest::newRow("S16LE mono") << rawCaps("S16LE", "channels=1") << SampleFormat::S16 << 1 << 4097;
    QTest::newRow("S24LE, 6 channels") << rawCaps("S24LE", "channels=6,channel-mask=(bitmask)0x3f")
                                       << SampleFormat::S24 << 6 << 1237;
}

void TestStream::rawSamplesWithSilenceBehindArriveWhole()
{
    QFETCH(QString, caps);
    QFETCH(SampleFormat, format);
    QFETCH(int, channels);
    QFETCH(int, chunk);
    const media::Pcm sound = media::noise(format, 48000, channels, 48000);
    const QByteArray silence(48000 * sound.frameSize(), '\0');
    VirtualCard card("card", realTime());
    QCOMPARE(playRaw(fifo, sound.samples + silence, caps, card, chunk), ended());
    QVERIFY(media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestStream::rawSamplesLoseNoMoreThanTheirTail()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 1, 48000);
    VirtualCard card("card", realTime());
    const QString caps = rawCaps("S16LE", "channels=1");
    QCOMPARE(playRaw(fifo, sound.samples, caps, card, 4096), ended());
    const QByteArray heard = media::withoutTrailingSilence(card.samples(), sound.frameSize());
    QVERIFY(!heard.isEmpty());
    QVERIFY(sound.samples.startsWith(heard));
}

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
    QVERIFY(media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestStream::writerAfterTheEndFindsNoReader()
{
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter first(fifo, media::wavBytes(media::noise(SampleFormat::S16, 48000, 2, 4800)));
    QVERIFY(probe.waitForOutcome());
    QVERIFY(first.waitForFinished());
    const auto findsReader = [this] {
        const int fd =
            ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) {
            ::close(fd);
        }
        return fd >= 0;
    };
    QVERIFY(!findsReader());
    // A further start of the same player does not open the pipe again.
    QVERIFY(probe->stopPlayback());
    QVERIFY(probe->startPlayback());
    QVERIFY(!findsReader());
    QCOMPARE(probe.finish(), ended());
}

void TestStream::killedWriterEndsTheStream()
{
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 48000);
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    VirtualCard card("card");
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, endlessWav(sound), manner);
    QVERIFY(waitFor([&card] { return card.frames() > 0; }));
    QVERIFY(writer.kill());
    QCOMPARE(probe.finish(), ended());
    const QByteArray heard = media::withoutTrailingSilence(card.samples(), sound.frameSize());
    QVERIFY(!heard.isEmpty());
    QVERIFY(sound.samples.startsWith(heard));
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
    QVERIFY(media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples);
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

/// What a child process has written so far, in bytes, and whether it sleeps.
struct Written
{
    qint64 bytes = -1;
    bool sleeps = false;
};

static Written writtenBy(const QByteArray& pid)
{
    Written written;
    for (const QByteArray& line : media::readFile("/proc/" + pid + "/io").split('\n')) {
        if (line.startsWith("wchar: ")) {
            written.bytes = line.mid(7).toLongLong();
        }
    }
    const QByteArray stat = media::readFile("/proc/" + pid + "/stat");
    written.sleeps = stat.mid(stat.lastIndexOf(')') + 2, 1) == "S";
    return written;
}

/// Waits until a writer sleeps although the loop turns: an enabled reader would read in each turn.
/// @return how much the writer has written then, -1 if it is never held
static qint64 waitUntilHeld(const QByteArray& pid)
{
    qint64 last = -1;
    int turns = 0;
    const bool held = waitFor([&] {
        const Written now = writtenBy(pid);
        turns = now.sleeps && now.bytes == last ? turns + 1 : 0;
        last = now.bytes;
        deliverQueuedEvents();
        return turns >= 100;
    });
    return held ? last : -1;
}

void TestStream::pausedPlayerLetsTheWriterWait()
{
    // Far more than what the pipe, the source and the queues behind the decoder hold together.
    const media::Pcm sound = media::noise(SampleFormat::S16, 48000, 2, 24 * 1024 * 1024 / 4);
    const QByteArray bytes = endlessWav(sound);
    VirtualCard::Settings settings;
    settings.speed = 200.0;
    VirtualCard card("card", settings);
    PlayerProbe probe(newPlayer(fifo, card));
    QVERIFY(probe->startPlayback());
    const qint64 before = residentKiB();
    PipeWriter writer(fifo, bytes);
    const QByteArray pid = media::readFile("/proc/thread-self/children").trimmed();
    QVERIFY(waitFor([&card] { return card.has("first-frame"); }));
    QVERIFY(probe->pausePlayback());
    const qint64 held = waitUntilHeld(pid);
    QVERIFY(held >= 0);
    QVERIFY2(held < bytes.size(), qPrintable(QString::number(held)));
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(probe->startPlayback());
    qint64 peak = residentKiB();
    QVERIFY(waitFor([&] {
        peak = qMax(peak, residentKiB());
        return !probe.outcomes.all.isEmpty();
    }));
    QCOMPARE(probe.finish(), ended());
    QVERIFY(writer.waitForFinished());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers keep what was freed.
    QVERIFY2(peak - before < 12 * 1024, qPrintable(QString::number(peak - before)));
#endif
    QVERIFY(media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestStream::quickRoundsLeaveNothing()
{
    VirtualCard card("card");
    const QDeadlineTimer budget(2000);
    do {
        PlayerProbe probe(newPlayer(fifo, card));
        QVERIFY(probe->startPlayback());
        QCOMPARE(probe.destroy(), QStringList());
    } while (!budget.hasExpired());
}

KOVA_TEST_MAIN(TestStream)
#include "tst_stream.moc"
