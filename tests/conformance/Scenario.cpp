#include "conformance/Scenario.h"

#include <algorithm>

// ---- Playback ----------------------------------------------------------------------------------

Playback::Playback(const Source& source, const media::Pcm& soundToPlay, const Card& cardSettings)
    : sound(soundToPlay), settings(cardSettings), card(std::in_place, "card", settings),
      player(source, Item(sound), card->device())
{
    player.probe.outcomes.inSlot = [this] { hasReportedInCall |= isCalling; };
}

bool Playback::call(bool (SimplePlayer::*function)(), bool expected)
{
    isCalling = true;
    const bool result = (player.probe.player.get()->*function)();
    isCalling = false;
    return result == expected && !hasReportedInCall;
}

void Playback::replaceCard(bool isPresent)
{
    card.reset();
    if (isPresent) {
        card.emplace("card");
    }
}

// ---- Steps -------------------------------------------------------------------------------------

/// A step that calls a function of the player.
static Step callStep(const char* name, bool (SimplePlayer::*function)(), bool expected)
{
    return {name, [=](Playback& playback) { return playback.call(function, expected); }};
}

/// What the card has recorded without the silence at its end.
static QByteArray recordedOn(const VirtualCard& card)
{
    return media::withoutTrailingSilence(card.samples(), 4);
}

namespace step {

const Step start{"start", [](Playback& playback) { return playback.player.start(); }};
const Step startAgain = callStep("start again", &SimplePlayer::startPlayback, true);
const Step startFails = callStep("start fails", &SimplePlayer::startPlayback, false);
const Step pausePlayback = callStep("pause", &SimplePlayer::pausePlayback, true);
const Step pauseAndSettle{
    "pause and settle", [](Playback& playback) { return playback.player.probe.pauseAndSettle(); }};
const Step pauseFails = callStep("pause fails", &SimplePlayer::pausePlayback, false);
const Step stop = callStep("stop", &SimplePlayer::stopPlayback, true);
const Step stopFails = callStep("stop fails", &SimplePlayer::stopPlayback, false);
const Step destroy{"destroy", [](Playback& playback) {
                       playback.player.probe.destroy();
                       return true;
                   }};

Step loop(bool on)
{
    return {"set loop", [on](Playback& playback) {
                playback.player->loop = on;
                return true;
            }};
}

const Step unplug{"unplug the card", [](Playback& playback) {
                      playback.replaceCard(false);
                      return true;
                  }};
const Step replaceCard{"replace the card", [](Playback& playback) {
                           playback.replaceCard(true);
                           return true;
                       }};
const Step cardIsOpen{"the card is open",
                      [](Playback& playback) { return !playback.card->has("close"); }};
const Step cardIsClosed{"the card is closed",
                        [](Playback& playback) { return playback.card->has("close"); }};

const Step cardIsPaused{"the card is paused", [](Playback& playback) {
                            const VirtualCard& card = *playback.card;
                            if (!waitFor([&card] { return card.has("pause"); })) {
                                return false;
                            }
                            const qint64 before = card.frames();
                            deliverQueuedEvents();
                            return card.frames() == before && before < playback.sound.frames();
                        }};

Step played(int frames)
{
    return {"wait for sound",
            [frames](Playback& playback) { return playback.card->waitForFrames(frames); }};
}

const Step stalled{"wait until the card stalls", [](Playback& playback) {
                       return waitFor([&playback] { return playback.card->has("first-frame"); }) &&
                              playback.card->waitForFrames(playback.settings.stallAfter);
                   }};
const Step playedAgain{"wait for the item once more", [](Playback& playback) {
                           return !playback.player.source.playsAgain ||
                                  playback.card->waitForFrames(playback.sound.frames());
                       }};

const Step outcome{"wait for the outcome",
                   [](Playback& playback) { return playback.player.waitForOutcome(); }};
const Step noOutcome{"no outcome", [](Playback& playback) {
                         deliverQueuedEvents();
                         return playback.player.outcomes().isEmpty();
                     }};

const Step anything{"records anything", [](Playback&) { return true; }};
const Step nothing{"records nothing",
                   [](Playback& playback) { return recordedOn(*playback.card).isEmpty(); }};
const Step whole{"records the whole item", [](Playback& playback) {
                     return recordedOn(*playback.card) == playback.sound.samples;
                 }};
const Step wholeBetweenPauses{"records the whole item between pauses", [](Playback& playback) {
                                  return media::withoutSilence(playback.card->samples(),
                                                               playback.sound.frameSize()) ==
                                         playback.sound.samples;
                              }};
const Step beginning{"records the beginning of the item", [](Playback& playback) {
                         return playback.sound.samples.startsWith(recordedOn(*playback.card));
                     }};
const Step upToTheFault{"records what comes before the fault", [](Playback& playback) {
                            const qint64 frames =
                                qMax(playback.settings.stallAfter, playback.settings.vanishAfter);
                            return recordedOn(*playback.card) == playback.sound.first(frames);
                        }};
const Step wholeIfPlayedAgain{
    "records the whole item if it can be played again", [](Playback& playback) {
        return (playback.player.source.playsAgain ? whole : nothing).run(playback);
    }};
const Step repeatedIfLooping{
    "records the item again and again if it loops", [](Playback& playback) {
        return playback.player.source.loops
                   ? playback.card->samples().startsWith(playback.sound.samples)
                   : whole.run(playback);
    }};

} // namespace step

// ---- Scenarios ---------------------------------------------------------------------------------

/// What differs from a scenario with a source; empty when nothing does.
static QString problemOf(const Scenario& scenario, const Source& source)
{
    Playback playback(source, media::noise(scenario.frames), scenario.card);
    const auto failure = [&playback](const Step& step) {
        return QStringLiteral("\"%1\" fails; outcomes so far: %2")
            .arg(step.name, playback.player.outcomes().join(", "));
    };
    for (const Step& step : scenario.steps) {
        if (!step.run(playback)) {
            return failure(step);
        }
    }
    const QString outcomes =
        (playback.player.probe.player ? playback.player.finish() : playback.player.outcomes())
            .join(", ");
    const bool differs = source.loops && scenario.outcomeOfLooping;
    const QString expected(differs ? scenario.outcomeOfLooping : scenario.outcome);
    if (outcomes != expected) {
        return QStringLiteral("\"%1\" instead of \"%2\"").arg(outcomes, expected);
    }
    const QStringList events = playback.card ? playback.card->eventNames() : QStringList();
    if (events.count("open") != events.count("close")) {
        return QStringLiteral("the card is still open");
    }
    return scenario.recorded.run(playback) ? QString() : failure(scenario.recorded);
}

void addScenarios(const std::vector<Scenario>& scenarios)
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<Scenario>("scenario");
    // An emulated processor is slow: there, each scenario runs for one kind of source, the next one
    // in turn.
    const bool oneSource = qEnvironmentVariableIsSet("KOVA_EMULATOR");
    int number = 0;
    for (const Scenario& scenario : scenarios) {
        for (const Source* source : Source::all()) {
            const bool isTurn = Source::all().at(number % Source::all().size()) == source;
            if (isTurn || !oneSource) {
                QTest::addRow("%s: %s", source->name, scenario.name) << source << scenario;
            }
        }
        ++number;
    }
}

void runScenario()
{
    QFETCH(const Source*, source);
    QFETCH(Scenario, scenario);
    QCOMPARE(problemOf(scenario, *source), QString());
    if (scenario.card.refuse == "format" || scenario.card.refuse == "rate") {
        // GStreamer's sink does not always free the caps that the card refused.
        overlookLeakedGstObject(QStringLiteral("GstCaps"));
    }
    QCOMPARE(problemOfNextPlayer(*source), QString());
}

void addSources()
{
    QTest::addColumn<const Source*>("source");
    for (const Source* source : Source::all()) {
        QTest::newRow(source->name) << source;
    }
}

bool isOneOutcome(const QStringList& outcomes, const QString& beginning)
{
    return outcomes.size() == 1 && outcomes.first().startsWith(beginning);
}
