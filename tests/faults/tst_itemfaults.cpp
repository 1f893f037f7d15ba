#include "faults/Sources.h"

#include "kit/GstFaults.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

/// Items that are cut, that change while they play, that are no files at all, or for which the
/// machine lacks a part of the pipeline.
class TestItemFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void cutItemPlaysWhatIsThere_data();
    void cutItemPlaysWhatIsThere();

    void fileThatShrinksPlaysWhatWasRead_data();
    void fileThatShrinksPlaysWhatWasRead();
    void fileThatIsTakenAwayPlaysWhole_data();
    void fileThatIsTakenAwayPlaysWhole();

    void fileThatCannotBeReadIsReported();
    void whatIsNoFileIsReported_data();
    void whatIsNoFileIsReported();
    void fifoNamedAsAFileWaitsForWriters();

    void missingElementIsReported_data();
    void missingElementIsReported();

private:
    media::Pcm sound; ///< one second of noise
};

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

/// What was heard of S16 stereo sound.
static QByteArray heard(const VirtualCard& card)
{
    return media::withoutTrailingSilence(card.samples(), 4);
}

void TestItemFaults::initTestCase()
{
    sound = media::noise(media::SampleFormat::S16, 48000, 2, 48000);
}

void TestItemFaults::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- Cut items ---------------------------------------------------------------------------------

/// Lengths at which an item is cut: all powers of two and their neighbours, as they fall into
/// headers, and tenths of the whole.
static QVector<int> cuts(int size)
{
    QVector<int> all;
    for (int length = 1; length < size; length *= isLong() ? 2 : 16) {
        for (const int cut : {length - 1, length, length + 1}) {
            if (!all.contains(cut)) {
                all << cut;
            }
        }
    }
    for (int tenth = 1; tenth < 10; tenth += isLong() ? 1 : 4) {
        all << size / 10 * tenth;
    }
    return all;
}

void TestItemFaults::cutItemPlaysWhatIsThere_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<QByteArray>("whole");
    const QString wav = media::writeWav("whole.wav", sound);
    QStringList suffixes{"wav", "flac", "ogg"};
    if (isLong()) {
        suffixes << "mp3"
                 << "opus";
    }
    for (const QString& suffix : qAsConst(suffixes)) {
        const QString name = "whole." + suffix;
        const QByteArray whole =
            media::readFile(name.endsWith("wav") ? wav : media::encode(name, wav));
        for (const Source source : allSources) {
            QTest::addRow("%s, %s", nameOf(source), qPrintable(suffix)) << source << whole;
        }
    }
}

/// Waits for an outcome. When a demuxer looks for its bytes itself and does not find enough of
/// them, GStreamer's decoder may take its error for one of a demuxer that was only tried, and lose
/// it: then nothing more comes, and a while is long enough.
static bool waitForErrorThatMayBeLost(const PlayerProbe& probe)
{
    constexpr int whileMs = 300;
    QElapsedTimer elapsed;
    elapsed.start();
    return waitFor([&] { return !probe.outcomes.all.isEmpty() || elapsed.hasExpired(whileMs); });
}

/// Whether this is all that was heard of a sound, for the whole frames of which there is room. The
/// first one of a short sound may be missing: see frameThatIsRoundedAwayIsTheFirst of tst_playback.
static bool isHeardOf(const QByteArray& played, const QByteArray& sound, int room)
{
    const QByteArray whole = sound.left(room / 4 * 4);
    return played == whole || played == whole.mid(4);
}

void TestItemFaults::cutItemPlaysWhatIsThere()
{
    QFETCH(Source, source);
    QFETCH(QByteArray, whole);
    const bool isWav = whole.startsWith("RIFF");
    VirtualCard::Settings settings;
    if (!isWav) {
        settings.speed = 200.0; // gaps would do no harm
    }
    for (const int length : cuts(whole.size())) {
        const VirtualCard card("cut", settings);
        SourcedPlayer player(source, whole.left(length), card.device());
        QVERIFY(player.start());
        const bool mayLoseError = source != Source::Pipe && !isWav && length < whole.size() / 2;
        if (mayLoseError) {
            QVERIFY(waitForErrorThatMayBeLost(player.probe));
            player.probe->stopPlayback();
        }
        const QStringList outcomes = player.finish();
        if (!mayLoseError || outcomes != QStringList("stopped token")) {
            QCOMPARE(outcomes.size(), 1);
            QVERIFY2(outcomes.first().startsWith(card.frames() > 0 ? "ended" : "error"),
                     qPrintable(outcomes.first()));
        }
        QVERIFY(!isWav || isHeardOf(heard(card), sound.samples, qMax(0, length - wavHeaderSize)));
    }
    QCOMPARE(flawOfNextPlayer(source), QString());
}

// ---- Files that change -------------------------------------------------------------------------

/// 20 s of noise: far more than what all queues of a pipeline hold.
static media::Pcm longSound()
{
    media::Pcm sound = media::noise(media::SampleFormat::S16, 48000, 2, 48000);
    sound.samples = sound.samples.repeated(20);
    return sound;
}

void TestItemFaults::fileThatShrinksPlaysWhatWasRead_data()
{
    QTest::addColumn<int>("left");
    QTest::newRow("to nothing") << 0;
    QTest::newRow("into its header") << 20;
    QTest::newRow("to its header") << 44;
    QTest::newRow("to a part of what was heard") << 4096;
}

void TestItemFaults::fileThatShrinksPlaysWhatWasRead()
{
    QFETCH(int, left);
    const media::Pcm whole = longSound();
    const VirtualCard card("shrinking");
    const QString file = media::writeWav("shrinking.wav", whole);
    PlayerProbe probe(new UriSimplePlayer(file, "token", card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&card] { return card.frames() > 4800; }));
    QVERIFY(QFile::resize(file, left));
    QCOMPARE(probe.finish(), ended());
    const QByteArray played = heard(card);
    QVERIFY(played.size() >= 4800 * whole.frameSize() && played.size() < whole.samples.size());
    QVERIFY(whole.samples.startsWith(played));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

void TestItemFaults::fileThatIsTakenAwayPlaysWhole_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::newRow("removed") << false;
    QTest::newRow("replaced") << true;
}

void TestItemFaults::fileThatIsTakenAwayPlaysWhole()
{
    QFETCH(bool, isReplaced);
    const media::Pcm whole = longSound();
    const VirtualCard card("taken");
    const QString file = media::writeWav("taken.wav", whole);
    PlayerProbe probe(new UriSimplePlayer(file, "token", card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&card] { return card.frames() > 4800; }));
    QVERIFY(QFile::remove(file));
    if (isReplaced) {
        media::writeFile("taken.wav", QByteArray(1 << 20, 'x'));
    }
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(difference(heard(card), whole.samples), QString());
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

// ---- No files ----------------------------------------------------------------------------------

namespace {

/// Takes root's right to read everything from this thread while it lives.
class OrdinaryReader
{
public:
    OrdinaryReader()
    {
        ::syscall(SYS_capget, &header, former.data());
        auto reduced = former;
        reduced[0].effective &= ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH));
        ::syscall(SYS_capset, &header, reduced.data());
    }
    ~OrdinaryReader() { ::syscall(SYS_capset, &header, former.data()); }
    OrdinaryReader(const OrdinaryReader&) = delete;
    OrdinaryReader& operator=(const OrdinaryReader&) = delete;

private:
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> former{};
};

} // namespace

void TestItemFaults::fileThatCannotBeReadIsReported()
{
    const VirtualCard card("unread");
    const QString file = media::writeWav("secret.wav", sound);
    PlayerProbe probe(new UriSimplePlayer(file, "token", card.device()));
    QVERIFY(QFile::setPermissions(file, QFile::Permissions()));
    {
        const OrdinaryReader reader;
        QVERIFY(!probe->startPlayback());
    }
    QCOMPARE(probe.finish(),
             QStringList("error token: Could not open file \"" + file + "\" for reading."));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

void TestItemFaults::whatIsNoFileIsReported_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* path, const char* reason) {
        QTest::newRow(path) << QString(path) << QString(reason);
    };
    row("/dev/null", "Stream doesn't contain enough data.");
    // No end is in sight, but GStreamer gives up soon.
    row("/dev/zero", "Could not determine type of stream.");
    row("/dev/full", "Could not determine type of stream.");
    row("/proc/self/status", "This appears to be a text file");
    row("/proc/self/mem", "Could not read from resource.");
}

void TestItemFaults::whatIsNoFileIsReported()
{
    QFETCH(QString, path);
    QFETCH(QString, reason);
    const VirtualCard card("special");
    PlayerProbe probe(new UriSimplePlayer(path, "token", card.device()));
    QElapsedTimer sinceStart;
    sinceStart.start();
    QVERIFY(probe->startPlayback());
    const QStringList outcomes = probe.finish();
    tellMeasured(outcomes, sinceStart);
    QCOMPARE(outcomes, QStringList("error token: " + reason));
    QCOMPARE(card.frames(), qint64(0));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

void TestItemFaults::fifoNamedAsAFileWaitsForWriters()
{
    const QString fifo = TestProcess::path("as-a-file");
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const VirtualCard card("fifo");
    PlayerProbe probe(new UriSimplePlayer(fifo, "token", card.device()));
    // GStreamer opens the FIFO more than once, and each time waits for a writer.
    std::atomic_bool done{false};
    std::thread writers([&fifo, &done] {
        while (!done) {
            const int end =
                ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (end >= 0) {
                ::close(end);
            }
            std::this_thread::yield();
        }
    });
    const bool started = probe->startPlayback();
    const QStringList outcomes = probe.finish();
    done = true;
    writers.join();
    QVERIFY(started);
    QCOMPARE(outcomes, QStringList("error token: Stream doesn't contain enough data."));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

// ---- Missing elements --------------------------------------------------------------------------

void TestItemFaults::missingElementIsReported_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<QByteArray>("factory");
    QTest::addColumn<QString>("suffix");
    const QString wav = media::writeWav("complete.wav", sound);
    for (const char* suffix : {"flac", "ogg"}) {
        media::encode(QStringLiteral("complete.") + suffix, wav);
    }
    for (const Source source : allSources) {
        const auto row = [source](const char* factory, const char* suffix) {
            QTest::addRow("%s, %s", nameOf(source), factory)
                << source << QByteArray(factory) << QString(suffix);
        };
        row("wavparse", "wav");
        row("flacparse", "flac");
        row("flacdec", "flac");
        row("oggdemux", "ogg");
        row("vorbisdec", "ogg");
    }
    // Without it the other sources cannot be linked, which is nothing that a signal tells.
    QTest::newRow("URI, typefind") << Source::Uri << QByteArray("typefind") << QString("wav");
}

void TestItemFaults::missingElementIsReported()
{
    QFETCH(Source, source);
    QFETCH(QByteArray, factory);
    QFETCH(QString, suffix);
    const QByteArray bytes = media::readFile(TestProcess::path("complete." + suffix));
    const VirtualCard card("lacking");
    {
        const MissingFactory missing(factory.constData());
        SourcedPlayer player(source, bytes, card.device());
        // Types are looked for from the very start.
        QCOMPARE(player.start(), factory != "typefind");
        QCOMPARE(player.finish(),
                 QStringList("error token: Your GStreamer installation is missing a plug-in."));
        QCOMPARE(card.frames(), qint64(0));
    }
    QCOMPARE(flawOfNextPlayer(source), QString());
}

KOVA_TEST(TestItemFaults)
#include "tst_itemfaults.moc"
