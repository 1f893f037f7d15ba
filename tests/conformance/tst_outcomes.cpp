#include "conformance/Scenario.h"

#include "kit/Effort.h"
#include "kit/Holdings.h"
#include "kit/LogCapture.h"

#include <QtCore/QPointer>

/// What calls and events come to: end, pause, stop, destruction, looping and failed starts.
class TestOutcomes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void itemPlaysWholeWhateverItsLength_data();
    void itemPlaysWholeWhateverItsLength() { runScenario(); }
    void startPlaysNothingTwice_data();
    void startPlaysNothingTwice() { runScenario(); }
    void pauseReportsNothing_data();
    void pauseReportsNothing() { runScenario(); }
    void stopIsReportedOnce_data();
    void stopIsReportedOnce() { runScenario(); }
    void destructionReportsNothing_data();
    void destructionReportsNothing() { runScenario(); }
    void loopRepeatsUntilStopped_data();
    void loopRepeatsUntilStopped() { runScenario(); }
    void failedStartIsReported_data();
    void failedStartIsReported() { runScenario(); }

    void onlyUnsupportedLoopLogsAnError_data() { addSources(); }
    void onlyUnsupportedLoopLogsAnError();
    void deviceThatCannotBeOpenedIsReported_data();
    void deviceThatCannotBeOpenedIsReported();
    void playerIsDeletedLaterInItsOwnSlot_data();
    void playerIsDeletedLaterInItsOwnSlot();
    void quickDestructionsLeaveNothing_data();
    void quickDestructionsLeaveNothing();
};

static const char* const ended = "ended token";
static const char* const stopped = "stopped token";
static const char* const notInitialized = "error token: Not initialized";
static const char* const notOpened = "error token: Could not open audio device for playback.";
static const char* const disconnected =
    "error token: Error outputting to audio device. The device has been disconnected.";

// ---- Calls and events --------------------------------------------------------------------------

void TestOutcomes::itemPlaysWholeWhateverItsLength_data()
{
    using namespace step;
    // GStreamer's sink rounds down how many frames fit into the nanoseconds of a block. At 48 kHz
    // the first frame is left out where the first block is no multiple of three frames.
    const Step wholeOrWithoutTheFirstFrame{
        "records the item or all but its first frame", [](Playback& playback) {
            const QByteArray& all = playback.sound.samples;
            const QByteArray& recorded = playback.card->samples();
            return media::difference(recorded, all).isEmpty() ||
                   media::difference(recorded, all.mid(playback.sound.frameSize())).isEmpty();
        }};
    addScenarios({
        {"3 frames", Card::atSpeed(1.0), {start}, ended, whole, 3},
        {"100 frames", Card::atSpeed(20.0), {start}, ended, wholeOrWithoutTheFirstFrame, 100},
        {"1 ms", Card::atSpeed(1.0), {start}, ended, whole, 48},
        {"20 ms", Card::atSpeed(1.0), {start}, ended, whole, 960},
        {"139 ms", Card::atSpeed(1.0), {start}, ended, whole, 6672},
        {"0.5 s", Card::atSpeed(1.0), {start}, ended, whole, 24000},
        {"20 ms, fast", Card::atSpeed(20.0), {start}, ended, whole, 960},
        {"10 s, fast", Card::atSpeed(20.0), {start}, ended, whole, 480000},
    });
}

void TestOutcomes::startPlaysNothingTwice_data()
{
    using namespace step;
    addScenarios({
        {"start while playing", {}, {start, startAgain, played(4800), startAgain}, ended, whole},
        {"start after the end", {}, {start, outcome, startAgain}, ended, whole},
        {"start after the end and a stop",
         {},
         {start, outcome, whole, stop, replaceCard, startAgain, playedAgain},
         ended,
         wholeIfPlayedAgain},
        {"start after a stop",
         Card::stalled(),
         {start, stalled, stop, outcome, upToTheFault, replaceCard, startAgain, playedAgain},
         stopped,
         wholeIfPlayedAgain},
    });
}

void TestOutcomes::pauseReportsNothing_data()
{
    using namespace step;
    addScenarios({
        {"pause before the start", {}, {pauseFails, noOutcome, stopFails}, notInitialized, nothing},
        {"pause and resume",
         // In real time, which gives a busy machine the time to pause before the end.
         Card::atSpeed(1.0),
         {start, played(2400), pauseAndSettle, cardIsPaused, noOutcome, startAgain},
         ended,
         wholeBetweenPauses},
        {"pause several times",
         {},
         {start, played(2400), pauseAndSettle, startAgain, played(4800), pauseAndSettle, startAgain,
          played(9600), pauseAndSettle, startAgain, played(19200), pauseAndSettle, startAgain},
         ended,
         wholeBetweenPauses},
        {"pause twice",
         Card::stalled(),
         {start, stalled, pausePlayback, pausePlayback, stop},
         stopped,
         beginning},
        {"pause after the end", {}, {start, outcome, pausePlayback, stop}, ended, whole},
        {"pause after a stop",
         Card::stalled(),
         {start, stalled, stop, outcome, pausePlayback, stop},
         stopped,
         anything},
    });
}

void TestOutcomes::stopIsReportedOnce_data()
{
    using namespace step;
    addScenarios({
        {"stop before the start", {}, {stopFails, stopFails}, notInitialized, nothing},
        {"stop right after the start", {}, {start, stop}, stopped, beginning},
        {"stop in the middle",
         Card::stalled(),
         {start, stalled, noOutcome, stop, cardIsClosed},
         stopped,
         upToTheFault},
        {"stop while paused",
         Card::stalled(),
         {start, stalled, pausePlayback, stop},
         stopped,
         beginning},
        {"stop twice",
         Card::stalled(),
         {start, stalled, stop, stop, outcome, stop},
         stopped,
         beginning},
        {"stop after the end", {}, {start, outcome, cardIsOpen, stop, cardIsClosed}, ended, whole},
        {"stop and pause after an error",
         Card::vanishingAfter(9600),
         {start, outcome, cardIsClosed, pauseFails, stopFails},
         disconnected,
         upToTheFault},
    });
}

void TestOutcomes::destructionReportsNothing_data()
{
    using namespace step;
    addScenarios({
        {"new", {}, {destroy}, "", nothing},
        {"started", Card::stalled(), {start, destroy}, "", beginning},
        {"started, events delivered", Card::stalled(), {start, noOutcome, destroy}, "", beginning},
        {"after the first frame", Card::stalled(), {start, played(1), destroy}, "", beginning},
        {"in the middle", Card::stalled(), {start, played(2400), destroy}, "", beginning},
        {"when nothing is played any more",
         Card::stalled(),
         {start, stalled, destroy},
         "",
         beginning},
        {"paused at the start", Card::stalled(), {start, pausePlayback, destroy}, "", beginning},
        {"paused", Card::stalled(), {start, stalled, pausePlayback, destroy}, "", beginning},
        {"stop not yet reported",
         Card::stalled(),
         {start, stalled, stop, destroy},
         "",
         upToTheFault},
        {"stopped",
         Card::stalled(),
         {start, stalled, stop, outcome, destroy},
         stopped,
         upToTheFault},
        {"stopped and started", Card::stalled(), {start, stop, startAgain, destroy}, "", anything},
        {"ended", {}, {start, outcome, destroy}, ended, whole},
        {"failed",
         Card::vanishingAfter(4800),
         {start, outcome, destroy},
         disconnected,
         upToTheFault},
        {"start failed, error not yet reported", {}, {unplug, startFails, destroy}, "", anything},
    });
}

void TestOutcomes::loopRepeatsUntilStopped_data()
{
    using namespace step;
    const Step toTheEnd{
        "records the item to its end", [](Playback& playback) {
            const QByteArray& all = playback.sound.samples;
            const QByteArray recorded = media::withoutTrailingSilence(playback.card->samples(), 4);
            return recorded.startsWith(all) && recorded.endsWith(all.right(all.size() / 2));
        }};
    // The item ends after the first time where it does not loop.
    const auto repeated = [](int frames) -> Step {
        return {"wait for a repetition", [frames](Playback& playback) {
                    return playback.player.source.loops ? playback.card->waitForFrames(frames)
                                                        : playback.player.waitForOutcome();
                }};
    };
    addScenarios({
        {"loop",
         {},
         {loop(true), start, repeated(100000), stop},
         ended,
         repeatedIfLooping,
         48000,
         stopped},
        {"loop set during playback",
         Card::atSpeed(1.0),
         {start, played(480), loop(true), repeated(100000), stop},
         ended,
         repeatedIfLooping,
         48000,
         stopped},
        {"loop reset during a repetition",
         {},
         {loop(true), start, repeated(12000), loop(false)},
         ended,
         toTheEnd,
         9600},
    });
}

void TestOutcomes::failedStartIsReported_data()
{
    using namespace step;
    addScenarios({
        {"device cannot be opened", {}, {unplug, startFails}, notOpened, anything},
        {"stop before the error is reported", {}, {unplug, startFails, stop}, stopped, anything},
        {"start again after the error",
         {},
         {unplug, startFails, outcome, replaceCard, startAgain, playedAgain},
         notOpened,
         anything},
    });
}

// ---- Looping -----------------------------------------------------------------------------------

void TestOutcomes::onlyUnsupportedLoopLogsAnError()
{
    QFETCH(const Source*, source);
    const LogCapture log;
    Playback playback(*source, media::noise(4800), {});
    playback.player->loop = true;
    QVERIFY(playback.player.start());
    if (source->loops) {
        QVERIFY(playback.card->waitForFrames(4801));
        playback.player->loop = false;
    }
    QCOMPARE(playback.player.finish(), QStringList(ended));
    QCOMPARE(log.texts("ERROR").size(), source->loops ? 0 : 1);
}

// ---- Devices -----------------------------------------------------------------------------------

void TestOutcomes::deviceThatCannotBeOpenedIsReported_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QString>("device");
    for (const Source* source : Source::all()) {
        QTest::addRow("%s: unknown name", source->name) << source << "no_such_device";
        QTest::addRow("%s: empty name", source->name) << source << "";
        QTest::addRow("%s: no name", source->name) << source << "\xc3\xa4{ }:%'\n";
    }
}

void TestOutcomes::deviceThatCannotBeOpenedIsReported()
{
    QFETCH(const Source*, source);
    QFETCH(QString, device);
    const VirtualCard other("other");
    SourcePlayer player(*source, Item(media::noise(4800)), device);
    QVERIFY(!player.start());
    QCOMPARE(player.finish(), QStringList(notOpened));
    QCOMPARE(other.frames(), qint64(0));
    QCOMPARE(problemOfNextPlayer(*source), QString());
}

// ---- Destruction -------------------------------------------------------------------------------

void TestOutcomes::playerIsDeletedLaterInItsOwnSlot_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<QString>("expected");
    for (const Source* source : Source::all()) {
        for (const char* expected : {ended, stopped, notOpened}) {
            QTest::addRow("%s: %s", source->name, expected) << source << QString(expected);
        }
    }
}

void TestOutcomes::playerIsDeletedLaterInItsOwnSlot()
{
    QFETCH(const Source*, source);
    QFETCH(QString, expected);
    Playback playback(*source, media::noise(4800), {});
    const bool fails = expected == notOpened;
    playback.replaceCard(!fails);
    auto& probe = playback.player.probe;
    const QPointer<SimplePlayer> player(probe.player.get());
    probe.outcomes.inSlot = [&] {
        if (!playback.player.outcomes().isEmpty()) {
            probe.player.release()->deleteLater();
        }
    };
    QCOMPARE(playback.player.start(), !fails);
    QVERIFY(expected != stopped || player->stopPlayback());
    QVERIFY(waitFor([&player] {
        deliverQueuedEvents();
        return player.isNull();
    }));
    QCOMPARE(playback.player.outcomes(), QStringList(expected));
}

using EarlyState = void (*)(SourcePlayer& player);
Q_DECLARE_METATYPE(EarlyState)

void TestOutcomes::quickDestructionsLeaveNothing_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<EarlyState>("enter");
    for (const Source* source : Source::all()) {
        const auto row = [source](const char* name, EarlyState enter) {
            QTest::addRow("%s: %s", source->name, name) << source << enter;
        };
        row("new", [](SourcePlayer&) {});
        row("started", [](SourcePlayer& player) { player->startPlayback(); });
        row("fed", [](SourcePlayer& player) {
            player.startAndFeed();
            deliverQueuedEvents();
        });
        row("paused", [](SourcePlayer& player) {
            player.startAndFeed();
            player->pausePlayback();
        });
        row("stopped", [](SourcePlayer& player) {
            player.startAndFeed();
            player->stopPlayback();
        });
        row("stopped and started", [](SourcePlayer& player) {
            player.startAndFeed();
            player->stopPlayback();
            player->startPlayback();
        });
    }
}

void TestOutcomes::quickDestructionsLeaveNothing()
{
    QFETCH(const Source*, source);
    QFETCH(EarlyState, enter);
    const VirtualCard card("card");
    const Item item(media::noise(4800));
    Holdings before{0, 0};
    const int rounds = repetitions(40, 2000);
    for (int round = 0; round < rounds; ++round) {
        SourcePlayer player(*source, item, card.device());
        enter(player);
        player.probe.destroy();
        QCOMPARE(player.outcomes(), QStringList());
        if (round == 1) {
            before = Holdings::now();
        }
    }
    QVERIFY(waitFor([&before] { return Holdings::now().within(before); }));
}

KOVA_TEST(TestOutcomes)
#include "tst_outcomes.moc"
