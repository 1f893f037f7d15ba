#include "conformance/Scenario.h"

#include "kit/FifoWriter.h"

#include <QtCore/QThread>

#include <atomic>

/// Several players in one process, on one thread and on several, and players that are moved to
/// another thread.
class TestThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void playersAtOnceAllPlayWhole_data() { addSources(); }
    void playersAtOnceAllPlayWhole();
    void oneItemServesManyPlayers_data() { addSources(); }
    void oneItemServesManyPlayers();
    void stopLeavesOtherPlayersAlone_data() { addSources(); }
    void stopLeavesOtherPlayersAlone();
    void errorLeavesOtherPlayersAlone_data() { addSources(); }
    void errorLeavesOtherPlayersAlone();
    void playersInThreadsAllPlayWhole_data() { addSources(); }
    void playersInThreadsAllPlayWhole();
    void playersInThreadsAreDestroyedEarly_data() { addSources(); }
    void playersInThreadsAreDestroyedEarly();

    void movedPlayerReportsInItsThread_data();
    void movedPlayerReportsInItsThread();
};

namespace {

/// One of several players, with a token, an item and a card of its own.
class Member
{
public:
    Member(const Source& kind, int number, const media::Pcm& itsSound)
        : source(kind), token(QStringLiteral("player %1").arg(number)), sound(itsSound),
          card(QStringLiteral("card%1").arg(number)), item(sound)
    {
    }
    Member(const Source& kind, int number)
        : Member(kind, number, media::noise(12000, static_cast<quint32>(number + 1)))
    {
    }

    /// Makes the player on the calling thread, starts it and writes its item.
    bool start()
    {
        probe =
            std::make_unique<PlayerProbe>(source.makePlayer(item, token, card.device(), nullptr));
        const bool started = (*probe)->startPlayback();
        if (source.hasWriter) {
            FifoWriter(item.fifo).write(item.bytes);
        }
        return started;
    }

    /// @return what differs from whole playback; empty when nothing does
    QString finish()
    {
        const QString outcomes = probe->finish().join(", ");
        return outcomes == "ended " + token ? media::difference(card.samples(), sound.samples)
                                            : outcomes;
    }

    const Source& source;
    const QString token;
    const media::Pcm sound;
    const VirtualCard card;
    const Item item;
    std::unique_ptr<PlayerProbe> probe;
};

using Members = std::vector<std::unique_ptr<Member>>;

Members makeMembers(const Source& source, int count)
{
    Members members;
    for (int i = 0; i < count; ++i) {
        members.push_back(std::make_unique<Member>(source, i));
    }
    return members;
}

} // namespace

// ---- One thread --------------------------------------------------------------------------------

void TestThreads::playersAtOnceAllPlayWhole()
{
    QFETCH(const Source*, source);
    const Members members = makeMembers(*source, 10);
    for (const auto& member : members) {
        QVERIFY(member->start());
    }
    for (const auto& member : members) {
        QCOMPARE(member->finish(), QString());
    }
}

void TestThreads::oneItemServesManyPlayers()
{
    QFETCH(const Source*, source);
    const media::Pcm sound = media::noise(12000);
    Members members;
    for (int i = 0; i < 4; ++i) {
        members.push_back(std::make_unique<Member>(*source, i, sound));
        QVERIFY(members.back()->start());
    }
    for (const auto& member : members) {
        QCOMPARE(member->finish(), QString());
    }
}

void TestThreads::stopLeavesOtherPlayersAlone()
{
    QFETCH(const Source*, source);
    const Members members = makeMembers(*source, 3);
    for (const auto& member : members) {
        QVERIFY(member->start());
    }
    QVERIFY((*members[1]->probe)->stopPlayback());
    QCOMPARE(withoutRefusals(members[1]->probe->finish()),
             QStringList("stopped " + members[1]->token));
    QCOMPARE(members[0]->finish(), QString());
    QCOMPARE(members[2]->finish(), QString());
}

void TestThreads::errorLeavesOtherPlayersAlone()
{
    QFETCH(const Source*, source);
    const Members members = makeMembers(*source, 2);
    for (const auto& member : members) {
        QVERIFY(member->start());
    }
    SourcePlayer failing(*source, Item(members[0]->sound), "no_such_device");
    QVERIFY(!failing.start());
    QCOMPARE(failing.finish(),
             QStringList("error token: Could not open audio device for playback."));
    for (const auto& member : members) {
        QCOMPARE(member->finish(), QString());
    }
}

// ---- Several threads ---------------------------------------------------------------------------

/// Runs a function for each member on a thread of its own. A player's functions run an event loop
/// of that thread, on the GLib context that Qt makes for it.
template <typename Work>
static void runInThreads(const Members& members, Work work)
{
    std::vector<std::unique_ptr<QThread>> threads;
    for (const auto& member : members) {
        threads.emplace_back(QThread::create([work, &member] { work(*member); }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        QVERIFY(thread->wait(patience));
    }
}

void TestThreads::playersInThreadsAllPlayWhole()
{
    QFETCH(const Source*, source);
    const Members members = makeMembers(*source, 4);
    std::atomic_int wholes{0};
    runInThreads(members, [&wholes](Member& member) {
        member.start();
        const QString problem = member.finish();
        wholes += problem.isEmpty() ? 1 : 0;
        member.probe.reset();
    });
    QCOMPARE(wholes.load(), 4);
}

void TestThreads::playersInThreadsAreDestroyedEarly()
{
    QFETCH(const Source*, source);
    const Members members = makeMembers(*source, 4);
    std::atomic_int reports{0};
    runInThreads(members, [&reports](Member& member) {
        for (int round = 0; round < 10; ++round) {
            member.start();
            reports += withoutRefusals(member.probe->destroy()).size();
        }
    });
    QCOMPARE(reports.load(), 0);
}

// ---- Moved players -----------------------------------------------------------------------------

void TestThreads::movedPlayerReportsInItsThread_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QString>("outcome");
    for (const Source* source : Source::all()) {
        for (const char* outcome : {"ended token", "stopped token",
                                    "error token: Could not open audio device for playback."}) {
            QTest::addRow("%s: %s", source->name, outcome) << source << QString(outcome);
        }
    }
}

/// Plays a player that was moved to the calling thread, and deletes it.
/// @param fifo       where its item is written to; empty for none
/// @param isStopped  whether it is stopped after its start
/// @return its outcomes, without those that were emitted on another thread
static QStringList playMoved(SimplePlayer* player, const Item& item, const QString& fifo,
                             bool isStopped)
{
    PlayerProbe probe(player);
    const QThread* const here = QThread::currentThread();
    std::atomic_int elsewhere{0};
    const auto note = [here, &elsewhere] { elsewhere += QThread::currentThread() == here ? 0 : 1; };
    for (const auto signal : {&SimplePlayer::playbackEnded, &SimplePlayer::playbackStopped}) {
        QObject::connect(player, signal, player, note, Qt::DirectConnection);
    }
    QObject::connect(
        player, &SimplePlayer::playbackErrorReported, player,
        [&note](const QString& token, const QString& reason) {
            // Refused data is reported on the thread that wanted it.
            if (!Outcomes::isRefusal(QStringLiteral("error %1: %2").arg(token, reason))) {
                note();
            }
        },
        Qt::DirectConnection);
    const bool started = player->startPlayback();
    if (started && !fifo.isEmpty()) {
        FifoWriter(fifo).write(item.bytes);
    }
    if (isStopped) {
        player->stopPlayback();
    }
    const QStringList outcomes = withoutRefusals(probe.finish());
    return elsewhere == 0 ? outcomes : QStringList();
}

void TestThreads::movedPlayerReportsInItsThread()
{
    QFETCH(const Source*, source);
    QFETCH(QString, outcome);
    const bool fails = outcome.startsWith("error");
    const media::Pcm sound = media::noise(12000);
    const bool isStopped = outcome.startsWith("stopped");
    const VirtualCard card("card", isStopped ? Card::stalled() : Card());
    const Item item(sound);
    SimplePlayer* const player =
        source->makePlayer(item, "token", fails ? "no_such_device" : card.device(), nullptr);
    const QString fifo = source->hasWriter ? item.fifo : QString();
    QStringList outcomes; // of the thread, which ends before they are read
    const std::unique_ptr<QThread> thread(
        QThread::create([&outcomes, player, &item, fifo, isStopped] {
            outcomes = playMoved(player, item, fifo, isStopped);
        }));
    player->moveToThread(thread.get());
    thread->start();
    QVERIFY(thread->wait(patience));
    QCOMPARE(outcomes, QStringList(outcome));
    const bool hasEnded = outcome == "ended token";
    QVERIFY(!hasEnded || media::difference(card.samples(), sound.samples).isEmpty());
}

KOVA_TEST(TestThreads)
#include "tst_threads.moc"
