#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/Outcomes.h"
#include "kit/SourceEngine.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <cstring>
#include <memory>
#include <utility>

/// What clients see of a player without an item: its parent, its members, FakePlayer.
class TestInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fakePlayerAnswersTrueToEverything();
    void fakePlayerReportsEveryStopAtOnce();
    void fakePlayerReportsOnTheCallingThread();
    void fakePlayerMayBeDeletedInItsSlot();
    void playersHaveTheParentTheyAreGiven();

    void constructorsSetEveryMember();
};

namespace {

/// An object in memory whose bytes were all 1, so that a flag which its constructor forgot is
/// true, and a pointer is not null.
template <typename Object>
class OverOnes
{
public:
    template <typename... Arguments>
    explicit OverOnes(Arguments&&... arguments)
    {
        // Volatile, because writing where an object is about to begin is for nothing otherwise.
        for (volatile unsigned char& byte : memory) {
            byte = 1;
        }
        object = new (memory) Object(std::forward<Arguments>(arguments)...);
    }
    ~OverOnes() { object->~Object(); }
    OverOnes(const OverOnes&) = delete;
    OverOnes& operator=(const OverOnes&) = delete;

    Object* operator->() const { return object; }
    Object* get() const { return object; }

private:
    alignas(Object) unsigned char memory[sizeof(Object)];
    Object* object;
};

/// The second member of every player, which is never read.
quint32 reservedWord(const SimplePlayer& player)
{
    quint32 word = 1;
    std::memcpy(&word, reinterpret_cast<const char*>(&player) + sizeof(QObject) + 4, sizeof word);
    return word;
}

} // namespace

void TestInterface::fakePlayerAnswersTrueToEverything()
{
    FakePlayer player(QStringLiteral("T"));
    const Outcomes outcomes(&player);
    QVERIFY(player.startPlayback());
    QVERIFY(player.pausePlayback());
    QCOMPARE(outcomes.all, QStringList());
    QVERIFY(player.stopPlayback());
}

void TestInterface::fakePlayerReportsEveryStopAtOnce()
{
    FakePlayer player(QStringLiteral("T"));
    const Outcomes outcomes(&player);
    player.stopPlayback();
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
    player.startPlayback();
    player.stopPlayback();
    QCOMPARE(outcomes.all, (QStringList{"stopped T", "stopped T"}));
}

void TestInterface::fakePlayerReportsOnTheCallingThread()
{
    FakePlayer player(QStringLiteral("T"));
    QThread* slotThread = nullptr;
    connect(&player, &SimplePlayer::playbackStopped,
            [&] { slotThread = QThread::currentThread(); });
    QThread* seenInsideTheCall = nullptr;
    const std::unique_ptr<QThread> caller(QThread::create([&] {
        player.stopPlayback();
        seenInsideTheCall = slotThread;
    }));
    caller->start();
    QVERIFY(caller->wait());
    QCOMPARE(seenInsideTheCall, caller.get());
}

void TestInterface::fakePlayerMayBeDeletedInItsSlot()
{
    auto* player = new FakePlayer(QStringLiteral("T"));
    Outcomes outcomes(player);
    outcomes.inSlot = [player] { delete player; };
    // A second receiver reads the token after the player was deleted: the token must still exist.
    connect(player, &SimplePlayer::playbackStopped, this, [] {});
    QVERIFY(player->stopPlayback());
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
}

void TestInterface::playersHaveTheParentTheyAreGiven()
{
    QObject parent;
    QCOMPARE((new FakePlayer(QStringLiteral("T"), &parent))->parent(), &parent);
    const Item item{QByteArray("data")};
    for (const Source* source : Source::all()) {
        const SimplePlayer* player =
            source->makePlayer(item, QStringLiteral("T"), QString(), &parent);
        QCOMPARE(player->parent(), &parent);
        QCOMPARE(engineOf(*player)->parent(), player);
    }
}

void TestInterface::constructorsSetEveryMember()
{
    const OverOnes<FakePlayer> fake(QStringLiteral("T"));
    QVERIFY(!fake->loop);
    QCOMPARE(reservedWord(*fake.get()), 0U);

    const OverOnes<UriSimplePlayer> front(QString(), QStringLiteral("T"), QString());
    QVERIFY(!front->loop);
    QCOMPARE(reservedWord(*front.get()), 0U);

    const OverOnes<OpenUriEngine> uri(QString(), QStringLiteral("T"), QString(), front.get());
    QCOMPARE(uri->player, front.get());
    QVERIFY(!uri->pipeline);
    QVERIFY(!uri->initialized);
    QVERIFY(!uri->endReported);
    QCOMPARE(uri->uriPlayer, front.get());
    QVERIFY(!uri->uriDecodeBin);
    QVERIFY(!uri->queue);
    QVERIFY(!uri->sink);
    QVERIFY(uri->uri.isNull());

    DataSimplePlayer dataFront("data", QStringLiteral("T"), QString());
    const OverOnes<OpenDataEngine> data("data", QStringLiteral("T"), QString(), &dataFront);
    QCOMPARE(data->dataPlayer, &dataFront);
    QCOMPARE(data->offset, quint64(0));

    StreamSimplePlayer streamFront(QString(), QString(), QStringLiteral("T"), QString());
    const OverOnes<OpenStreamEngine> stream(QString(), QString(), QStringLiteral("T"), QString(),
                                            &streamFront);
    QCOMPARE(stream->streamPlayer, &streamFront);
    QVERIFY(!stream->pipe);
}

KOVA_TEST(TestInterface)
#include "tst_interface.moc"
