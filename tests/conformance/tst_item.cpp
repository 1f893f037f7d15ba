#include "conformance/Scenario.h"

#include "kit/Effort.h"
#include "kit/FifoWriter.h"
#include "kit/GstFaults.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

#include <sys/stat.h>

#include <atomic>
#include <thread>

/// Items that are no sound, are cut, change during playback or are no files, and items for which
/// the machine lacks an element.
class TestItem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void itemWithoutSoundIsReported_data();
    void itemWithoutSoundIsReported();
    void cutItemPlaysUpToTheCut_data();
    void cutItemPlaysUpToTheCut();

    void fileThatShrinksPlaysWhatWasRead_data();
    void fileThatShrinksPlaysWhatWasRead();
    void fileThatIsRemovedPlaysWhole_data();
    void fileThatIsRemovedPlaysWhole();
    void specialFileIsReported_data();
    void specialFileIsReported();
    void fifoAsAFileWaitsForWriters();

    void missingDecoderIsReported_data();
    void missingDecoderIsReported();
    void missingElementOfThePipelineFailsTheStart_data();
    void missingElementOfThePipelineFailsTheStart();
};

// ---- No sound ----------------------------------------------------------------------------------

void TestItem::itemWithoutSoundIsReported_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QString unknown("Could not determine type of stream.");
    // What comes through a FIFO has no size that GStreamer could look at first.
    const QString empty("Stream contains no data.");
    const QString emptyFifo("Stream doesn't contain enough data.");
    const media::Pcm sound = media::noise(20000);
    for (const Source* source : Source::all()) {
        const auto row = [source](const char* name, const QByteArray& bytes,
                                  const QString& reason) {
            QTest::addRow("%s: %s", source->name, name) << source << bytes << reason;
        };
        row("nothing", {}, source->hasWriter ? emptyFifo : empty);
        row("1 byte", "R", unknown);
        row("10 bytes", "0123456789", unknown);
        row("half a header", media::wavBytes(sound).left(10), unknown);
        row("64 KiB of noise", sound.samples.left(65536), unknown);
        row("text", QByteArray("Nothing to hear in here.\n").repeated(1000),
            "This appears to be a text file");
        row("zeros", QByteArray(65536, '\0'), unknown);
    }
}

void TestItem::itemWithoutSoundIsReported()
{
    QFETCH(const Source*, source);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    const VirtualCard card("card");
    SourcePlayer player(*source, Item(bytes), card.device());
    QVERIFY(player.start());
    QCOMPARE(player.finish(), QStringList("error token: " + reason));
    QCOMPARE(card.frames(), qint64(0));
    QCOMPARE(problemOfNextPlayer(*source), QString());
}

// ---- Cut items ---------------------------------------------------------------------------------

namespace {

/// A whole item that is to be cut.
struct Whole
{
    QByteArray bytes;
    QByteArray samples; ///< to compare with; empty after a lossy encoder
    int frames;
    int mostLost; ///< how many frames a cut takes besides its share of the bytes
};

} // namespace
Q_DECLARE_METATYPE(Whole)

/// Encodes noise that is long enough for the first tenth of the bytes to hold all headers.
static Whole encoded(const QString& suffix, int frames, int mostLost)
{
    const media::Pcm noise = media::noise(frames);
    const QString wav = media::writeWav("whole.wav", noise);
    const QString name = "whole." + suffix;
    const QString path = TestProcess::path(name);
    if (suffix == "mkv") {
        media::encodeContainer(name, "libopus", {wav}, false);
    } else if (suffix == "opus") {
        media::run("opusenc", {"--quiet", "--serial", "1", "--max-delay", "100", wav, path});
    } else if (suffix != "wav") {
        media::encode(name, wav);
    }
    return {media::readFile(path), suffix == "wav" ? noise.samples : QByteArray(), frames,
            mostLost};
}

void TestItem::cutItemPlaysUpToTheCut_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<Whole>("whole");
    // A cut costs a frame of WAV, a block of FLAC, some frames of MP3, or a page of Ogg; the
    // headers' share of the bytes comes on top.
    const auto rows = [](const char* suffix, int frames, int mostLost) {
        const Whole whole = encoded(suffix, frames, mostLost);
        for (const Source* source : Source::all()) {
            QTest::addRow("%s: %s", source->name, suffix) << source << whole;
        }
    };
    rows("wav", 48000, 1 + 44 / 4);
    rows("flac", 96000, 4608 + 2304);
    rows("mp3", 96000, 3 * 1152);
    rows("ogg", 216000, 43200);
    rows("opus", 72000, 10800);
    rows("mkv", 144000, 72000);
}

/// Lengths at which an item is cut: powers of two and their neighbours, which are in headers, the
/// end of a WAV header, and tenths of the whole.
static QVector<int> cuts(const Whole& whole)
{
    const int size = whole.bytes.size();
    const bool isWav = !whole.samples.isEmpty();
    QVector<int> all = isWav ? QVector<int>{44, 44 + 3 * 4} : QVector<int>{};
    for (int length = 1; length < size; length *= isLongRun() ? 2 : 32) {
        all << length;
        if (isWav || isLongRun()) {
            all << length - 1 << length + 1;
        }
    }
    for (int tenth = 1; tenth < 10; tenth += isLongRun() ? 1 : 4) {
        all << size / 10 * tenth;
    }
    return all;
}

/// Waits for an outcome. GStreamer's decoder may discard the error of a demuxer that looks for its
/// bytes itself and does not find enough of them. Nothing follows then.
static bool waitForErrorThatMayBeLost(const SourcePlayer& player)
{
    constexpr int limitMs = 300;
    QElapsedTimer elapsed;
    elapsed.start();
    return waitFor([&] { return !player.outcomes().isEmpty() || elapsed.hasExpired(limitMs); });
}

/// Plays the first bytes of an item. @return what differs from the expected outcome and recording;
/// empty when nothing does
static QString problemOfCut(const Source& source, const Whole& whole, int length)
{
    const bool isWav = !whole.samples.isEmpty();
    // Gaps between the samples of other formats would do no harm.
    const VirtualCard card("cut", Card::atSpeed(isWav ? 20.0 : 200.0));
    SourcePlayer player(source, Item(whole.bytes.left(length)), card.device());
    if (!player.start()) {
        return QStringLiteral("does not start");
    }
    const bool mayLoseError = !source.hasWriter && !isWav && length < whole.bytes.size() / 2;
    if (mayLoseError) {
        waitForErrorThatMayBeLost(player);
        player->stopPlayback();
    }
    const QString outcomes = player.finish().join('\n');
    if (mayLoseError && outcomes == "stopped token") {
        return QString();
    }
    const bool hasSound = isWav ? length >= 44 : card.frames() > 0;
    if (!outcomes.startsWith(hasSound ? "ended token" : "error token") || outcomes.contains('\n')) {
        return outcomes;
    }
    const QByteArray expected = whole.samples.left(qMax(0, length - 44) / 4 * 4);
    if (isWav && !media::difference(card.samples(), expected).isEmpty() &&
        !media::difference(card.samples(), expected.mid(4)).isEmpty()) {
        return media::difference(card.samples(), expected);
    }
    const qint64 share = qint64(whole.frames) * length / whole.bytes.size() - whole.mostLost;
    return card.frames() >= share ? QString()
                                  : QStringLiteral("%1 frames are too few").arg(card.frames());
}

void TestItem::cutItemPlaysUpToTheCut()
{
    QFETCH(const Source*, source);
    QFETCH(Whole, whole);
    for (const int length : cuts(whole)) {
        const QString problem = problemOfCut(*source, whole, length);
        QVERIFY2(problem.isEmpty(), qPrintable(QStringLiteral("%1 bytes: ").arg(length) + problem));
    }
    QCOMPARE(problemOfNextPlayer(*source), QString());
}

// ---- Files that change -------------------------------------------------------------------------

namespace {

/// A file of 20 s, far more than all queues of a pipeline hold, that is being played.
struct PlayingFile
{
    PlayingFile() : sound(media::noise(48000)), card("card")
    {
        sound.samples = sound.samples.repeated(20);
        item.file = media::writeWav("file.wav", sound);
        player = std::make_unique<SourcePlayer>(Source::uri(), item, card.device());
        isPlaying = player->start() && card.waitForFrames(4800);
    }

    media::Pcm sound;
    VirtualCard card;
    Item item;
    std::unique_ptr<SourcePlayer> player;
    bool isPlaying = false;
};

} // namespace

void TestItem::fileThatShrinksPlaysWhatWasRead_data()
{
    QTest::addColumn<int>("left");
    QTest::newRow("to nothing") << 0;
    QTest::newRow("into its header") << 20;
    QTest::newRow("to its header") << 44;
    QTest::newRow("to a part of what was played") << 4096;
}

void TestItem::fileThatShrinksPlaysWhatWasRead()
{
    QFETCH(int, left);
    const PlayingFile playing;
    QVERIFY(playing.isPlaying);
    QVERIFY(QFile::resize(playing.item.file, left));
    QCOMPARE(playing.player->finish(), QStringList("ended token"));
    const QByteArray recorded = media::withoutTrailingSilence(playing.card.samples(), 4);
    QVERIFY(recorded.size() >= 4800 * 4 && recorded.size() < playing.sound.samples.size());
    QVERIFY(playing.sound.samples.startsWith(recorded));
    QCOMPARE(problemOfNextPlayer(Source::uri()), QString());
}

void TestItem::fileThatIsRemovedPlaysWhole_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::newRow("removed") << false;
    QTest::newRow("replaced") << true;
}

void TestItem::fileThatIsRemovedPlaysWhole()
{
    QFETCH(bool, isReplaced);
    const PlayingFile playing;
    QVERIFY(playing.isPlaying);
    QVERIFY(QFile::remove(playing.item.file));
    if (isReplaced) {
        media::writeFile("file.wav", QByteArray(1 << 20, 'x'));
    }
    QCOMPARE(playing.player->finish(), QStringList("ended token"));
    QCOMPARE(media::difference(playing.card.samples(), playing.sound.samples), QString());
    QCOMPARE(problemOfNextPlayer(Source::uri()), QString());
}

// ---- Special files -----------------------------------------------------------------------------

void TestItem::specialFileIsReported_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* path, const char* reason) {
        QTest::newRow(path) << QString(path) << QString(reason);
    };
    row("/dev/null", "Stream doesn't contain enough data.");
    // The file has no end, but GStreamer soon stops looking for a type.
    row("/dev/zero", "Could not determine type of stream.");
    row("/dev/full", "Could not determine type of stream.");
    row("/proc/self/status", "This appears to be a text file");
    row("/proc/self/mem", "Could not read from resource.");
}

void TestItem::specialFileIsReported()
{
    QFETCH(QString, path);
    QFETCH(QString, reason);
    const VirtualCard card("card");
    Item item;
    item.file = path;
    SourcePlayer player(Source::uri(), item, card.device());
    QVERIFY(player.start());
    QCOMPARE(player.finish(), QStringList("error token: " + reason));
    QCOMPARE(card.frames(), qint64(0));
    QCOMPARE(problemOfNextPlayer(Source::uri()), QString());
}

void TestItem::fifoAsAFileWaitsForWriters()
{
    Item item;
    item.file = newFifoPath();
    QCOMPARE(::mkfifo(QFile::encodeName(item.file).constData(), 0600), 0);
    const VirtualCard card("card");
    SourcePlayer player(Source::uri(), item, card.device());
    // GStreamer opens the FIFO more than once, and each time waits for a writer.
    std::atomic_bool done{false};
    std::thread writers([&item, &done] {
        while (!done) {
            const FifoWriter writer(item.file);
            std::this_thread::yield();
        }
    });
    const bool started = player.start();
    const QStringList outcomes = player.finish();
    done = true;
    writers.join();
    QVERIFY(started);
    QCOMPARE(outcomes, QStringList("error token: Stream doesn't contain enough data."));
    QCOMPARE(problemOfNextPlayer(Source::uri()), QString());
}

// ---- Missing elements --------------------------------------------------------------------------

void TestItem::missingDecoderIsReported_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QByteArray>("factory");
    QTest::addColumn<QByteArray>("bytes");
    const QString wav = media::writeWav("complete.wav", media::noise(48000));
    const auto rows = [](const QByteArray& factory, const QString& file) {
        for (const Source* source : Source::all()) {
            QTest::addRow("%s: %s", source->name, factory.constData())
                << source << factory << media::readFile(file);
        }
    };
    const QString flac = media::encode("complete.flac", wav);
    const QString ogg = media::encode("complete.ogg", wav);
    rows("wavparse", wav);
    rows("flacparse", flac);
    rows("flacdec", flac);
    rows("oggdemux", ogg);
    rows("vorbisdec", ogg);
    // The pipelines of the other sources cannot be linked without it.
    QTest::newRow("uri: typefind")
        << &Source::uri() << QByteArray("typefind") << media::readFile(wav);
}

void TestItem::missingDecoderIsReported()
{
    QFETCH(const Source*, source);
    QFETCH(QByteArray, factory);
    QFETCH(QByteArray, bytes);
    const VirtualCard card("card");
    {
        const MissingFactory missing(factory.constData());
        SourcePlayer player(*source, Item(bytes), card.device());
        // The type is looked for from the start on.
        QCOMPARE(player.start(), factory != "typefind");
        QCOMPARE(player.finish(),
                 QStringList("error token: Your GStreamer installation is missing a plug-in."));
        QCOMPARE(card.frames(), qint64(0));
    }
    QCOMPARE(problemOfNextPlayer(*source), QString());
}

void TestItem::missingElementOfThePipelineFailsTheStart_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QByteArray>("factory");
    for (const Source* source : Source::all()) {
        for (const char* factory : {"audioconvert", "audioresample", "alsasink"}) {
            QTest::addRow("%s: %s", source->name, factory) << source << QByteArray(factory);
        }
    }
}

void TestItem::missingElementOfThePipelineFailsTheStart()
{
    QFETCH(const Source*, source);
    QFETCH(QByteArray, factory);
    {
        const MissingFactory missing(factory.constData());
        SourcePlayer player(*source, Item(media::noise(4800)), "card");
        QVERIFY(!player.start());
        deliverQueuedEvents();
        QCOMPARE(player.outcomes(), QStringList());
        QVERIFY(!player->stopPlayback());
        QCOMPARE(player.finish(), QStringList("error token: Not initialized"));
    }
    freeAbandonedGstElements();
    QCOMPARE(problemOfNextPlayer(*source), QString());
}

KOVA_TEST(TestItem)
#include "tst_item.moc"
