#include "faults/Sources.h"

#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/StreamSimplePlayer.h>

#include <QtTest/QtTest>

/// Writers that are killed with SIGKILL at the boundaries of the reader's blocks.
class TestWriterFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void killedWriterIsHeardToItsLastFrame_data();
    void killedWriterIsHeardToItsLastFrame();
    void killedWriterOfRawSamplesEndsTheStream_data();
    void killedWriterOfRawSamplesEndsTheStream();

private:
    media::Pcm sound;
    QByteArray item; ///< `sound` as a WAV file
};

/// The reader's block, in bytes.
static constexpr int block = 4096;

void TestWriterFaults::initTestCase()
{
    sound = media::noise(media::SampleFormat::S16, 48000, 2, 24 * block / 4);
    item = media::wavBytes(sound);
}

void TestWriterFaults::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

/// Rows of how many bytes are written before the writer's death, and in which pieces.
static void addDeaths(int size)
{
    QTest::addColumn<int>("death");
    QTest::addColumn<int>("chunk");
    const int step = isLong() ? 1 : isMachineSlow() ? 12 : 8;
    for (int boundary = 0; boundary < size; boundary += step * block) {
        for (const int death : {boundary - 1, boundary, boundary + 1}) {
            if (death >= 0) {
                QTest::addRow("%d bytes in blocks", death) << death << block;
                QTest::addRow("%d bytes in odd pieces", death) << death << 1237;
            }
        }
    }
}

/// What is heard of so many frames at 48 kHz. The sink drops the first frame of an item that lasts
/// less than 40 ms and no whole number of nanoseconds, in a bare pipeline too.
static QByteArray heardOf(const media::Pcm& sound, int frames)
{
    const bool losesFirst = frames < 1920 && frames % 3 != 0;
    return sound.samples.left(frames * sound.frameSize()).mid(losesFirst ? sound.frameSize() : 0);
}

static PipeWriter::Manner dyingAfter(int death, int chunk)
{
    PipeWriter::Manner manner;
    manner.chunk = chunk;
    manner.death = death;
    return manner;
}

void TestWriterFaults::killedWriterIsHeardToItsLastFrame_data()
{
    addDeaths(item.size());
}

void TestWriterFaults::killedWriterIsHeardToItsLastFrame()
{
    QFETCH(int, death);
    QFETCH(int, chunk);
    const VirtualCard card("card");
    SourcedPlayer player(Source::Pipe, item, card.device());
    QVERIFY(player.start(dyingAfter(death, chunk)));
    const QStringList outcomes = player.finish();
    QVERIFY(!player.writer->waitForFinished());
    const int frames = qMax(0, death - wavHeaderSize) / sound.frameSize();
    if (frames > 0) {
        QCOMPARE(outcomes, QStringList("ended token"));
    } else {
        QCOMPARE(outcomes.size(), 1);
        QVERIFY2(outcomes.first().startsWith("error token: "), qPrintable(outcomes.first()));
    }
    QCOMPARE(difference(media::withoutTrailingSilence(card.samples(), sound.frameSize()),
                        heardOf(sound, frames)),
             QString());
    QCOMPARE(flawOfNextPlayer(Source::Pipe), QString());
}

void TestWriterFaults::killedWriterOfRawSamplesEndsTheStream_data()
{
    addDeaths(sound.samples.size());
}

void TestWriterFaults::killedWriterOfRawSamplesEndsTheStream()
{
    QFETCH(int, death);
    QFETCH(int, chunk);
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("fifo");
    PlayerProbe probe(new StreamSimplePlayer(
        fifo, "audio/x-unaligned-raw,format=S16LE,rate=48000,channels=2,layout=interleaved",
        "token", card.device()));
    QElapsedTimer sinceStart;
    sinceStart.start();
    QVERIFY(probe->startPlayback());
    PipeWriter writer(fifo, sound.samples, dyingAfter(death, chunk));
    const QStringList outcomes = probe.finish();
    tellMeasured(outcomes, sinceStart);
    // A part of a frame is no sound, and no bytes at all are an item without any.
    const bool hasSound = death == 0 || death >= sound.frameSize();
    QCOMPARE(outcomes,
             QStringList(hasSound ? "ended token"
                                  : "error token: No valid frames found before end of stream"));
    // Their last part is still in the buffers when the end is told, and a stop empties these.
    QVERIFY(sound.samples.left(death).startsWith(
        media::withoutTrailingSilence(card.samples(), sound.frameSize())));
    QCOMPARE(flawOfNextPlayer(Source::Pipe), QString());
}

KOVA_TEST(TestWriterFaults)
#include "tst_writerfaults.moc"
