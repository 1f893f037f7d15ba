#ifndef TEST_CONFORMANCE_SCENARIO_H
#define TEST_CONFORMANCE_SCENARIO_H

#include "kit/Media.h"
#include "kit/NextPlayer.h"
#include "kit/Source.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

#include <functional>
#include <optional>

using Card = VirtualCard::Settings;

// Scenarios as data: what a client does with a player, and what follows for each kind of source.

/// One player, its card, and the sound that it plays.
class Playback
{
public:
    Playback(const Source& source, const media::Pcm& sound, const Card& settings);

    /// Calls a function of the player. @return whether it returned `expected` and reported nothing
    /// from inside the call
    bool call(bool (SimplePlayer::*function)(), bool expected);

    /// Replaces the card by one without faults that has the same name, or by none.
    void replaceCard(bool isPresent);

    const media::Pcm sound;
    const Card settings;
    std::optional<VirtualCard> card;
    SourcePlayer player;

private:
    bool isCalling = false;
    bool hasReportedInCall = false;
};

/// Something that a client does, waits for or checks.
struct Step
{
    const char* name;
    std::function<bool(Playback&)> run; ///< returns whether it came about as the name states
};

namespace step {

// Calls and their results.
extern const Step start; ///< starts the player and, if there is one, its writer
extern const Step startAgain;
extern const Step startFails;
extern const Step pausePlayback;
extern const Step pauseAndSettle; ///< and waits until the whole pipeline is paused
extern const Step pauseFails;
extern const Step stop;
extern const Step stopFails;
extern const Step destroy;
Step loop(bool on);

// The card.
extern const Step unplug;
extern const Step replaceCard;
extern const Step cardIsOpen;
extern const Step cardIsClosed;
extern const Step cardIsPaused; ///< waits until it is, before the end of the item
Step played(int frames);        ///< waits until the card has played so many frames in all
extern const Step stalled;      ///< waits until the card has played all that it will play
extern const Step playedAgain;  ///< waits for the whole item where a source can repeat it

// Outcomes.
extern const Step outcome;   ///< waits for it
extern const Step noOutcome; ///< none is reported by what has happened so far

// Recordings.
extern const Step anything;
extern const Step nothing;
extern const Step whole;
extern const Step wholeBetweenPauses;
extern const Step beginning;
extern const Step upToTheFault; ///< the frames before the one at which the card vanished or stalled
extern const Step wholeIfPlayedAgain; ///< nothing of a source that cannot be played again
extern const Step repeatedIfLooping;

} // namespace step

/// A row of a table of scenarios.
struct Scenario
{
    const char* name;
    Card card;
    std::vector<Step> steps; ///< then the player is stopped and destroyed, if it still exists
    const char* outcome;     ///< as Outcomes writes it; empty for none
    Step recorded;           ///< checks the recording after the destruction
    int frames = 48000;      ///< of the item
    const char* outcomeOfLooping = nullptr; ///< where it differs: of a source that loops
};
Q_DECLARE_METATYPE(Scenario)

/// Adds the rows of a table for each kind of source, with the columns "source" and "scenario".
void addScenarios(const std::vector<Scenario>& scenarios);

/// Runs the current row of such a table, and then the next player of the process.
void runScenario();

/// A column "source" with a row for each kind of source.
void addSources();

/// Whether there is just one outcome, which begins with a text.
bool isOneOutcome(const QStringList& outcomes, const QString& beginning);

#endif
