#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <QtTest/QtTest>

#include <algorithm>
#include <vector>

/// Items in memory: large ones, and the array that belongs to the caller.
class TestData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void largeItemPlaysToItsEnd();
    void largeItemPlaysUntilStopped();

    void callerMayUseItsArray_data();
    void callerMayUseItsArray();
    void borrowedBytesMayBeFreedOnceTheyArePlayed();
    void onlyOwnerOfTheBytesIsDestroyedEarly();

private:
    media::Pcm sound; ///< one second of noise
    QByteArray item;  ///< the same as a WAV file
};

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

static SimplePlayer* makePlayer(const QByteArray& bytes, const VirtualCard& card)
{
    return new DataSimplePlayer(bytes, QStringLiteral("token"), card.device());
}

void TestData::initTestCase()
{
    sound = media::noise(48000);
    item = media::wavBytes(sound);
}

void TestData::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- Large items -------------------------------------------------------------------------------

/// 64 MiB of noise.
static media::Pcm largeSound(media::SampleFormat format, int rate, int channels)
{
    media::Pcm large{format, rate, channels, QByteArray()};
    const int frames = (1 << 20) / large.frameSize();
    large.samples = media::noise(format, rate, channels, frames).samples.repeated(64);
    return large;
}

void TestData::largeItemPlaysToItsEnd()
{
    // As many bytes per second as there can be, so that it plays as fast as possible.
    const media::Pcm large = largeSound(media::SampleFormat::S32, 192000, 8);
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(media::wavBytes(large), card));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(media::difference(card.samples(), large.samples, large.frameSize()), QString());
}

void TestData::largeItemPlaysUntilStopped()
{
    const media::Pcm large = largeSound(media::SampleFormat::S16, 48000, 2);
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(media::wavBytes(large), card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(96000));
    QVERIFY(probe->stopPlayback());
    QCOMPARE(withoutRefusals(probe.finish()), QStringList("stopped token"));
    QVERIFY(large.samples.startsWith(media::withoutTrailingSilence(card.samples(), 4)));
}

// ---- The caller's array ------------------------------------------------------------------------

void TestData::callerMayUseItsArray_data()
{
    QTest::addColumn<QString>("use");
    QTest::addColumn<bool>("isPlaying");
    for (const char* use : {"keeps", "changes", "drops"}) {
        QTest::addRow("%s it at once", use) << QString(use) << false;
        QTest::addRow("%s it during playback", use) << QString(use) << true;
    }
}

void TestData::callerMayUseItsArray()
{
    QFETCH(QString, use);
    QFETCH(bool, isPlaying);
    QByteArray bytes = media::wavBytes(sound);
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(bytes, card));
    QVERIFY(probe->startPlayback());
    QVERIFY(!isPlaying || card.waitForFrames(4800));
    if (use == "changes") {
        bytes.fill('x');
    } else if (use == "drops") {
        bytes = QByteArray();
    }
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
    QVERIFY(use != "keeps" || bytes == item);
}

void TestData::borrowedBytesMayBeFreedOnceTheyArePlayed()
{
    std::vector<char> lent(item.begin(), item.end());
    const VirtualCard card("card");
    PlayerProbe probe(
        makePlayer(QByteArray::fromRawData(lent.data(), static_cast<int>(lent.size())), card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(1));
    std::fill(lent.begin(), lent.end(), 'x');
    lent = std::vector<char>();
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

void TestData::onlyOwnerOfTheBytesIsDestroyedEarly()
{
    const VirtualCard card("card");
    for (int round = 0; round < 100; ++round) {
        PlayerProbe probe(makePlayer(QByteArray(item.constData(), item.size()), card));
        QVERIFY(probe->startPlayback());
        QCOMPARE(withoutRefusals(probe.destroy()), QStringList());
    }
}

KOVA_TEST(TestData)
#include "tst_data.moc"
