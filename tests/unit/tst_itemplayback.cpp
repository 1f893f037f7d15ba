#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <tools/kova-play/Playback.h>

#include <QtTest/QtTest>

/// What kova-play makes of a player's reports that no real player gives at will.
class TestItemPlayback : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refusedPushIsNoOutcomeBesideAnother_data();
    void refusedPushIsNoOutcomeBesideAnother();
    void onlyPausedItemIsResumed();
};

namespace {

const QString refusedPush("Failed to push buffer");

/// A player that only reports the outcomes that its test chooses.
class ScriptedPlayer : public SimplePlayer
{
public:
    ScriptedPlayer() : SimplePlayer(nullptr) {}

    bool startPlayback() override
    {
        ++starts;
        return true;
    }
    bool pausePlayback() override { return true; }
    bool stopPlayback() override { return true; }

    int starts = 0;
};

class ScriptedItem : public Item
{
public:
    std::unique_ptr<SimplePlayer> makePlayer(const QString& /*token*/,
                                             const QString& /*device*/) const override
    {
        auto made = std::make_unique<ScriptedPlayer>();
        player = made.get();
        return made;
    }
    QString name() const override { return QStringLiteral("item"); }

    mutable ScriptedPlayer* player = nullptr; ///< the one that was made last
};

QString textOf(const Outcome& outcome)
{
    switch (outcome.kind) {
    case Outcome::Kind::Ended:
        return QStringLiteral("ended");
    case Outcome::Kind::Stopped:
        return QStringLiteral("stopped");
    case Outcome::Kind::Error:
        break;
    }
    return "error: " + outcome.reason;
}

using Reports = QVector<void (*)(ScriptedPlayer&)>;

} // namespace

Q_DECLARE_METATYPE(Reports)

void TestItemPlayback::refusedPushIsNoOutcomeBesideAnother_data()
{
    using Report = Reports::value_type;
    QTest::addColumn<Reports>("reports");
    QTest::addColumn<QString>("outcome");
    const Report refuse = [](ScriptedPlayer& player) {
        Q_EMIT player.playbackErrorReported("token", refusedPush);
    };
    const Report stop = [](ScriptedPlayer& player) { Q_EMIT player.playbackStopped("token"); };
    const Report fail = [](ScriptedPlayer& player) {
        Q_EMIT player.playbackErrorReported("token", "no card");
    };
    QTest::newRow("alone") << Reports{refuse} << "error: " + refusedPush;
    QTest::newRow("then a stop") << Reports{refuse, stop} << "stopped";
    QTest::newRow("then a failure") << Reports{refuse, fail} << "error: no card";
    QTest::newRow("after a stop") << Reports{stop, refuse} << "stopped";
    QTest::newRow("twice, then a stop") << Reports{refuse, refuse, stop} << "stopped";
}

void TestItemPlayback::refusedPushIsNoOutcomeBesideAnother()
{
    QFETCH(Reports, reports);
    QFETCH(QString, outcome);
    auto item = std::make_unique<ScriptedItem>();
    const ScriptedItem& made = *item;
    Playback playback(std::move(item), QStringLiteral("token"));
    QStringList outcomes;
    connect(&playback, &Playback::outcomeKnown, this,
            [&](const Outcome& known) { outcomes.append(textOf(known)); });
    bool finished = false;
    connect(&playback, &Playback::finished, this, [&] { finished = true; });
    playback.start(QStringLiteral("null"), Loop::No);
    QCOMPARE(playback.state(), Playback::State::Playing);
    // As players report: all that comes of one call is queued when the loop goes on.
    for (const auto report : reports) {
        QMetaObject::invokeMethod(
            made.player, [report, player = made.player] { report(*player); }, Qt::QueuedConnection);
    }
    QVERIFY(waitFor([&] { return finished; }));
    deliverQueuedEvents();
    QCOMPARE(outcomes, QStringList(outcome));
}

void TestItemPlayback::onlyPausedItemIsResumed()
{
    auto item = std::make_unique<ScriptedItem>();
    const ScriptedItem& made = *item;
    Playback playback(std::move(item), QStringLiteral("token"));
    playback.resume();
    QCOMPARE(playback.state(), Playback::State::Waiting);
    playback.start(QStringLiteral("null"), Loop::No);
    playback.resume();
    QCOMPARE(made.player->starts, 1);
    QVERIFY(playback.pause());
    playback.resume();
    QCOMPARE(made.player->starts, 2);
    QCOMPARE(playback.state(), Playback::State::Playing);
}

KOVA_TEST(TestItemPlayback)
#include "tst_itemplayback.moc"
