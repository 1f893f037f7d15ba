#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <vector>

/// Several players in one process, on one thread and on many.
class TestConcurrent : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void playersAtOnceAllPlayWhole_data();
    void playersAtOnceAllPlayWhole();
    void oneStoppedPlayerLeavesTheOthersAlone();
    void oneFailedPlayerLeavesTheOthersAlone();
    void playersInThreadsAllPlayWhole();
    void playersComeAndGoInThreads();
};

void TestConcurrent::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

namespace {

/// One player, its own item and its own card.
struct Desk
{
    explicit Desk(int number, int frames = 12000)
        : sound(media::noise(media::SampleFormat::S16, 48000, 2, frames,
                             static_cast<quint32>(number + 1))),
          token(QStringLiteral("player %1").arg(number)),
          card(QStringLiteral("card%1").arg(number)),
          file(media::writeWav(QStringLiteral("item %1.wav").arg(number), sound))
    {
    }

    /// Makes the player on the calling thread.
    void makePlayer()
    {
        probe = std::make_unique<PlayerProbe>(new UriSimplePlayer(file, token, card.device()));
    }

    bool playedWhole() const
    {
        return media::withoutTrailingSilence(card.samples(), sound.frameSize()) == sound.samples;
    }

    QStringList ended() const { return {QStringLiteral("ended ") + token}; }
    QStringList stopped() const { return {QStringLiteral("stopped ") + token}; }

    media::Pcm sound;
    QString token;
    VirtualCard card;
    QString file;
    std::unique_ptr<PlayerProbe> probe;
};

using Desks = std::vector<std::unique_ptr<Desk>>;

Desks makeDesks(int count)
{
    Desks desks;
    for (int i = 0; i < count; ++i) {
        desks.push_back(std::make_unique<Desk>(i));
    }
    return desks;
}

} // namespace

void TestConcurrent::playersAtOnceAllPlayWhole_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("two") << 2;
    QTest::newRow("ten") << 10;
}

void TestConcurrent::playersAtOnceAllPlayWhole()
{
    QFETCH(int, count);
    const Desks desks = makeDesks(count);
    for (const auto& desk : desks) {
        desk->makePlayer();
        QVERIFY((*desk->probe)->startPlayback());
    }
    for (const auto& desk : desks) {
        QCOMPARE(desk->probe->finish(), desk->ended());
        QVERIFY(desk->playedWhole());
    }
}

void TestConcurrent::oneStoppedPlayerLeavesTheOthersAlone()
{
    const Desks desks = makeDesks(3);
    for (const auto& desk : desks) {
        desk->makePlayer();
        QVERIFY((*desk->probe)->startPlayback());
    }
    QVERIFY((*desks[1]->probe)->stopPlayback());
    QCOMPARE(desks[1]->probe->finish(), desks[1]->stopped());
    for (const std::size_t i : {0U, 2U}) {
        QCOMPARE(desks[i]->probe->finish(), desks[i]->ended());
        QVERIFY(desks[i]->playedWhole());
    }
}

void TestConcurrent::oneFailedPlayerLeavesTheOthersAlone()
{
    const Desks desks = makeDesks(2);
    for (const auto& desk : desks) {
        desk->makePlayer();
        QVERIFY((*desk->probe)->startPlayback());
    }
    PlayerProbe failing(new UriSimplePlayer(desks[0]->file, "failing", "no_such_device"));
    QVERIFY(!failing->startPlayback());
    QCOMPARE(failing.finish(),
             QStringList("error failing: Could not open audio device for playback."));
    for (const auto& desk : desks) {
        QCOMPARE(desk->probe->finish(), desk->ended());
        QVERIFY(desk->playedWhole());
    }
}

// ---- Threads -----------------------------------------------------------------------------------

/// Runs `work` on a thread of its own and waits for the end of all threads. The player's functions
/// run an event loop of that thread, on the GLib context that Qt makes for it.
template <typename Work>
static void runInThreads(int count, Work work)
{
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(QThread::create([work, i] { work(i); }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        QVERIFY(thread->wait(patience));
    }
}

void TestConcurrent::playersInThreadsAllPlayWhole()
{
    const Desks desks = makeDesks(4);
    std::vector<QStringList> outcomes(desks.size());
    runInThreads(4, [&](int i) {
        Desk& desk = *desks[static_cast<std::size_t>(i)];
        desk.makePlayer();
        (*desk.probe)->startPlayback();
        outcomes[static_cast<std::size_t>(i)] = desk.probe->finish();
        desk.probe.reset();
    });
    for (std::size_t i = 0; i < desks.size(); ++i) {
        QCOMPARE(outcomes[i], desks[i]->ended());
        QVERIFY(desks[i]->playedWhole());
    }
}

void TestConcurrent::playersComeAndGoInThreads()
{
    const Desks desks = makeDesks(4);
    std::vector<QStringList> outcomes(desks.size());
    runInThreads(4, [&](int i) {
        Desk& desk = *desks[static_cast<std::size_t>(i)];
        for (int round = 0; round < 10; ++round) {
            desk.makePlayer();
            (*desk.probe)->startPlayback();
            outcomes[static_cast<std::size_t>(i)] += desk.probe->destroy();
        }
    });
    for (const QStringList& reported : outcomes) {
        QCOMPARE(reported, QStringList());
    }
}

KOVA_TEST(TestConcurrent)
#include "tst_concurrent.moc"
