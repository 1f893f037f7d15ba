#include "conformance/Scenario.h"

#include "kit/Effort.h"
#include "kit/FifoWriter.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QThread>

#include <sys/stat.h>

/// Writers of a FIFO that come early, late or never, are killed, or write more than is played.
class TestWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void killedWriterIsPlayedToItsLastFrame_data();
    void killedWriterIsPlayedToItsLastFrame();
    void killedWriterOfRawSamplesEndsTheStream_data();
    void killedWriterOfRawSamplesEndsTheStream();
    void writerThatIsKilledWhileItWaitsEndsTheStream();

    void writersThatOverlapAreOneStream();
    void writerAfterTheEndFindsNoReader();
    void writerBeforeThePlayerIsPlayed();
    void writerBeforeTheStartIsNeverPlayed();
    void playerWithoutAWriterCanBeStopped();
    void removedFifoIsPlayedWhileItIsOpen();
    void pathWithoutAFifoIsOnlyStopped_data();
    void pathWithoutAFifoIsOnlyStopped();

    void pausedPlayerMakesTheWriterWait();
    void stoppedPlayerUnblocksTheWriter_data();
    void stoppedPlayerUnblocksTheWriter();
    void destroyedPlayerUnblocksTheWriter_data();
    void destroyedPlayerUnblocksTheWriter();
};

/// The only source that has a writer.
static const Source& source()
{
    return Source::stream();
}

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

static QStringList stopped()
{
    return {QStringLiteral("stopped token")};
}

static constexpr int wavHeaderSize = 44;

/// A player that reads a FIFO, and its card.
struct Reader
{
    explicit Reader(const Card& settings = {}) : Reader(Item(QByteArray()), settings) {}
    Reader(const Item& item, const Card& settings)
        : card("card", settings), player(source(), item, card.device())
    {
    }

    const QString& fifo() const { return player.item.fifo; }
    SimplePlayer* operator->() const { return player.operator->(); }

    VirtualCard card;
    SourcePlayer player;
};

// ---- Killed writers ----------------------------------------------------------------------------

/// The most that the player reads at once, in bytes.
static constexpr int block = 4096;

static const media::Pcm& soundOfKilledWriter()
{
    static const media::Pcm sound = media::noise(24 * block / 4);
    return sound;
}

/// Rows of how many bytes are written until the writer is killed, and in which pieces.
static void addKilledWriters(int size)
{
    QTest::addColumn<int>("written");
    QTest::addColumn<int>("chunk");
    const int step = isLongRun() ? 1 : isSlowBuild() ? 12 : 8;
    for (int boundary = 0; boundary < size; boundary += step * block) {
        for (const int written : {boundary - 1, boundary, boundary + 1}) {
            if (written >= 0) {
                QTest::addRow("%d bytes in blocks", written) << written << block;
                QTest::addRow("%d bytes in odd pieces", written) << written << 1237;
            }
        }
    }
}

static PipeWriter::Manner killedAfter(int written, int chunk)
{
    PipeWriter::Manner manner;
    manner.chunk = chunk;
    manner.killedAfter = written;
    return manner;
}

/// What is recorded of so many frames at 48 kHz. GStreamer's sink drops the first frame of an item
/// that lasts less than 40 ms and no whole number of nanoseconds.
static QByteArray recordedOf(const media::Pcm& sound, int frames)
{
    const bool losesFirst = frames < 1920 && frames % 3 != 0;
    return sound.first(frames).mid(losesFirst ? sound.frameSize() : 0);
}

void TestWriter::killedWriterIsPlayedToItsLastFrame_data()
{
    addKilledWriters(media::wavBytes(soundOfKilledWriter()).size());
}

void TestWriter::killedWriterIsPlayedToItsLastFrame()
{
    QFETCH(int, written);
    QFETCH(int, chunk);
    const media::Pcm& sound = soundOfKilledWriter();
    Reader reader(Item(sound), {});
    QVERIFY(reader.player.start(killedAfter(written, chunk)));
    const QStringList outcomes = reader.player.finish();
    QVERIFY(!reader.player.writer->waitForFinished());
    const int frames = qMax(0, written - wavHeaderSize) / sound.frameSize();
    QVERIFY2(isOneOutcome(outcomes, frames > 0 ? "ended token" : "error token: "),
             qPrintable(outcomes.join('\n')));
    QCOMPARE(media::difference(reader.card.samples(), recordedOf(sound, frames)), QString());
    QCOMPARE(problemOfNextPlayer(source()), QString());
}

void TestWriter::killedWriterOfRawSamplesEndsTheStream_data()
{
    addKilledWriters(soundOfKilledWriter().samples.size());
}

void TestWriter::killedWriterOfRawSamplesEndsTheStream()
{
    QFETCH(int, written);
    QFETCH(int, chunk);
    const media::Pcm& sound = soundOfKilledWriter();
    Item item(sound.samples);
    item.caps = "audio/x-unaligned-raw,format=S16LE,rate=48000,channels=2,layout=interleaved";
    Reader reader(item, {});
    QVERIFY(reader.player.start(killedAfter(written, chunk)));
    // A part of a frame is no sound, while no bytes at all are an item without any.
    const bool hasSound = written == 0 || written >= sound.frameSize();
    QCOMPARE(reader.player.finish(),
             hasSound ? ended()
                      : QStringList("error token: No valid frames found before end of stream"));
    // The last part is still in the buffers when the end is reported, and a stop discards it.
    QVERIFY(sound.samples.left(written).startsWith(
        media::withoutTrailingSilence(reader.card.samples(), sound.frameSize())));
    QCOMPARE(problemOfNextPlayer(source()), QString());
}

/// Waits until a writer waits for this thread, which runs the reader and does not read.
/// @return how much it has written; -1 if it never waits
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

void TestWriter::writerThatIsKilledWhileItWaitsEndsTheStream()
{
    // Far more than what the FIFO, the source and the queues behind the decoder hold together.
    const media::Pcm sound = media::noise(media::SampleFormat::S16, 192000, 2, 6 * 1024 * 1024);
    const QByteArray bytes = media::endlessWavBytes(sound);
    PipeWriter::Manner manner;
    manner.chunk = PipeWriter::atomic;
    Reader reader;
    QVERIFY(reader->startPlayback());
    PipeWriter writer(reader.fifo(), bytes, manner);
    QVERIFY(writer.waitForOpened());
    QVERIFY(waitFor([&reader] { return reader.card.has("first-frame"); }));
    const qint64 written = waitUntilFull(writer);
    QVERIFY(written > 0 && written < bytes.size());
    QVERIFY(writer.isRunning());
    QVERIFY(writer.kill());
    QCOMPARE(reader.player.finish(), ended());
    QCOMPARE(media::difference(reader.card.samples(),
                               bytes.mid(wavHeaderSize, int(written) - wavHeaderSize)),
             QString());
}

// ---- Early, late and missing writers -----------------------------------------------------------

void TestWriter::writersThatOverlapAreOneStream()
{
    const media::Pcm sound = media::noise(24000);
    const QByteArray bytes = media::wavBytes(sound);
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    Reader reader;
    QVERIFY(reader->startPlayback());
    // Less than a FIFO holds: the writers need no event loop of the reader.
    PipeWriter first(reader.fifo(), bytes.left(50000), manner);
    QVERIFY(first.waitForWritten());
    PipeWriter second(reader.fifo(), bytes.mid(50000));
    QVERIFY(second.waitForOpened());
    QVERIFY(first.close());
    QCOMPARE(reader.player.finish(), ended());
    QCOMPARE(media::difference(reader.card.samples(), sound.samples), QString());
}

void TestWriter::writerAfterTheEndFindsNoReader()
{
    // A container that states its length would end before its writer does.
    Reader reader(Item(media::endlessWavBytes(media::noise(4800))), {});
    QVERIFY(reader.player.start());
    QVERIFY(reader.player.waitForOutcome());
    QVERIFY(reader.player.writer->waitForFinished());
    QVERIFY(!hasReader(reader.fifo()));
    // A further start of the same player does not open the FIFO again.
    QVERIFY(reader->stopPlayback());
    QVERIFY(reader->startPlayback());
    QVERIFY(!hasReader(reader.fifo()));
    QCOMPARE(reader.player.finish(), ended());
}

void TestWriter::writerBeforeThePlayerIsPlayed()
{
    const media::Pcm sound = media::noise(48000);
    const Item item(sound);
    QCOMPARE(::mkfifo(QFile::encodeName(item.fifo).constData(), 0600), 0);
    PipeWriter writer(item.fifo, item.bytes);
    QVERIFY(waitFor([&writer] { return writer.isAsleep(); }));
    // Between the two lines nothing is read, so that nothing is lost.
    Reader reader(item, {});
    QVERIFY(reader->startPlayback());
    QCOMPARE(reader.player.finish(), ended());
    QVERIFY(writer.waitForFinished());
    QCOMPARE(media::difference(reader.card.samples(), sound.samples), QString());
}

void TestWriter::writerBeforeTheStartIsNeverPlayed()
{
    PipeWriter::Manner manner;
    manner.keepOpen = true;
    Reader reader;
    PipeWriter writer(reader.fifo(), media::wavBytes(media::noise(4800)), manner);
    QVERIFY(writer.waitForWritten());
    deliverQueuedEvents();
    QVERIFY(reader->startPlayback());
    QVERIFY(!hasReader(reader.fifo()));
    QVERIFY(writer.close());
    deliverQueuedEvents();
    QVERIFY(reader->stopPlayback());
    QCOMPARE(reader.player.finish(), stopped());
    QCOMPARE(reader.card.frames(), qint64(0));
}

void TestWriter::playerWithoutAWriterCanBeStopped()
{
    Reader reader;
    QVERIFY(reader->startPlayback());
    deliverQueuedEvents();
    QVERIFY(reader->stopPlayback());
    QCOMPARE(reader.player.finish(), stopped());
    QVERIFY(QFile::exists(reader.fifo()));
}

void TestWriter::removedFifoIsPlayedWhileItIsOpen()
{
    const media::Pcm sound = media::noise(48000);
    Reader reader(Item(sound), {});
    QVERIFY(reader.player.start());
    QVERIFY(reader.player.writer->waitForOpened());
    QVERIFY(QFile::remove(reader.fifo()));
    QCOMPARE(reader.player.finish(), ended());
    QCOMPARE(media::difference(reader.card.samples(), sound.samples), QString());
}

void TestWriter::pathWithoutAFifoIsOnlyStopped_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("empty") << QString();
    QTest::newRow("folder that does not exist") << TestProcess::path("missing/fifo");
    QTest::newRow("regular file") << media::writeWav("regular.wav", media::noise(4800));
    QTest::newRow("directory") << TestProcess::path();
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

void TestWriter::pathWithoutAFifoIsOnlyStopped()
{
    QFETCH(QString, path);
    const QByteArray content = path.endsWith(".wav") ? media::readFile(path) : QByteArray();
    Item item;
    item.fifo = path;
    Reader reader(item, {});
    QVERIFY(reader->startPlayback());
    deliverQueuedEvents();
    QCOMPARE(reader.player.outcomes(), QStringList());
    QVERIFY(!isOpen(path));
    QVERIFY(reader->stopPlayback());
    QCOMPARE(reader.player.finish(), stopped());
    QCOMPARE(reader.card.frames(), qint64(0));
    QVERIFY(content.isEmpty() || media::readFile(path) == content);
    QCOMPARE(problemOfNextPlayer(source()), QString());
}

// ---- Writers that wait -------------------------------------------------------------------------

/// Waits until a writer sleeps although the event loop runs: an enabled reader would read in each
/// turn. @return how much the writer has written then; -1 if it goes on
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

/// The pieces of noise, which has no zero byte itself, between gaps of silence.
static QByteArrayList pieces(const QByteArray& recorded)
{
    QByteArrayList all = recorded.split('\0');
    all.removeAll(QByteArray());
    return all;
}

/// How many bytes of a sound are missing between the pieces of it that were recorded; -1 if
/// these are anything else than its beginning, its end and pieces between them in their order.
static int missingBytes(const QByteArrayList& recorded, const QByteArray& sound)
{
    int end = 0;
    for (const QByteArray& piece : recorded) {
        const int begin = sound.indexOf(piece, end);
        if (begin < 0) {
            return -1;
        }
        end = begin + piece.size();
    }
    const bool isWhole =
        !recorded.isEmpty() && sound.startsWith(recorded.first()) && end == sound.size();
    return isWhole ? sound.size() - recorded.join().size() : -1;
}

void TestWriter::pausedPlayerMakesTheWriterWait()
{
    // Far more than what the FIFO, the source and the queues behind the decoder hold together.
    const media::Pcm sound = media::noise(1024 * 1024);
    Reader reader(Item(media::endlessWavBytes(sound)), {});
    QVERIFY(reader.player.start());
    PipeWriter& writer = *reader.player.writer;
    QVERIFY(writer.waitForOpened());
    const int buffer = 9600; // of the card: 200 ms
    QVERIFY(reader.card.waitForFrames(4 * buffer));
    QVERIFY(reader->pausePlayback());
    const qint64 held = waitUntilHeld(writer);
    QVERIFY(held > 0 && held < reader.player.item.bytes.size());
    QCOMPARE(reader.player.outcomes(), QStringList());
    QVERIFY(reader->startPlayback());
    QCOMPARE(reader.player.finish(), ended());
    QVERIFY(writer.waitForFinished());
    // On a busy machine the sink may resume with silence instead of what was in its buffer.
    const int missing = missingBytes(pieces(reader.card.samples()), sound.samples);
    QVERIFY2(missing >= 0 && missing <= buffer * sound.frameSize(),
             qPrintable(QString::number(missing)));
}

namespace {

/// A state of a player whose writer has more to write than the player takes.
struct BlockedWriter
{
    Card card;
    bool isEndless;      ///< whether the item goes on as long as its writer writes
    const char* outcome; ///< its beginning; empty for none
    /// Brings the player into the state, from the moment when sound is played.
    bool (*enter)(SourcePlayer& player);
};

} // namespace
Q_DECLARE_METATYPE(BlockedWriter)

static void addBlockedWriters()
{
    QTest::addColumn<BlockedWriter>("state");
    const auto row = [](const char* name, const BlockedWriter& state) {
        QTest::newRow(name) << state;
    };
    row("playing", {Card::atSpeed(1.0), true, "",
                    [](SourcePlayer& player) { return waitUntilFull(*player.writer) > 0; }});
    row("paused", {Card::atSpeed(1.0), true, "", [](SourcePlayer& player) {
                       return player->pausePlayback() && waitUntilHeld(*player.writer) > 0;
                   }});
    row("stalled card", {Card::stallingAfter(4800), true, "",
                         [](SourcePlayer& player) { return waitUntilHeld(*player.writer) > 0; }});
    // The bytes behind an item that states its length are no sound.
    row("ended", {{}, false, "ended token", [](SourcePlayer& player) {
                      return player.waitForOutcome() && player.writer->isRunning();
                  }});
    row("failed", {Card::vanishingAfter(4800), true,
                   "error token: ", [](SourcePlayer& player) { return player.waitForOutcome(); }});
}

/// Brings a player into a state in which its writer waits, and ends it there.
static void unblock(bool isStopped)
{
    QFETCH(BlockedWriter, state);
    const media::Pcm sound = media::noise(state.isEndless ? 4 * 1024 * 1024 : 24000);
    Reader reader(Item(state.isEndless ? media::endlessWavBytes(sound)
                                       : media::wavBytes(sound) + QByteArray(1 << 20, 'x')),
                  state.card);
    SourcePlayer& player = reader.player;
    QVERIFY(player.start());
    QVERIFY(player.writer->waitForOpened());
    // A writer may wait for the decoder before the card stalls, too.
    QVERIFY(reader.card.waitForFrames(qMax<qint64>(1, state.card.stallAfter)));
    QVERIFY(state.enter(player));
    const QByteArray outcome = state.outcome;
    if (isStopped) {
        QCOMPARE(player->stopPlayback(), !outcome.startsWith("error"));
    } else {
        player.probe.player.reset();
    }
    QVERIFY(!hasReader(reader.fifo()));
    QVERIFY(!player.writer->waitForFinished()); // its reader has closed
    QVERIFY(!player.writer->isRunning());
    const QStringList outcomes = isStopped ? player.finish() : player.probe.destroy();
    QVERIFY2(outcome.isEmpty() ? outcomes == (isStopped ? stopped() : QStringList())
                               : isOneOutcome(outcomes, outcome),
             qPrintable(outcomes.join('\n')));
    const QByteArray recorded = media::withoutTrailingSilence(reader.card.samples(), 4);
    QVERIFY(sound.samples.startsWith(recorded));
    QVERIFY(state.card.stallAfter < 0 || recorded == sound.first(state.card.stallAfter));
    QVERIFY(state.isEndless || recorded == sound.samples);
}

void TestWriter::stoppedPlayerUnblocksTheWriter_data()
{
    addBlockedWriters();
}

void TestWriter::stoppedPlayerUnblocksTheWriter()
{
    unblock(true);
    QCOMPARE(problemOfNextPlayer(source()), QString());
}

void TestWriter::destroyedPlayerUnblocksTheWriter_data()
{
    addBlockedWriters();
}

void TestWriter::destroyedPlayerUnblocksTheWriter()
{
    unblock(false);
    QCOMPARE(problemOfNextPlayer(source()), QString());
}

KOVA_TEST(TestWriter)
#include "tst_writer.moc"
