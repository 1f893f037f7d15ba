#ifndef RACES_LIFE_H
#define RACES_LIFE_H

#include "Chance.h"
#include "Stage.h"

#include "kit/Outcomes.h"

#include <QtCore/QPointer>

/// How a client is done with a player.
enum class Death
{
    Stopped,               ///< stopped, and destroyed when the outcome is told
    StoppedAndDestroyed,   ///< stopped and destroyed before anything can be told
    Destroyed,             ///< destroyed
    DeletedLater,          ///< given to deleteLater()
    DeletedLaterInItsSlot, ///< stopped, and given to deleteLater() in the slot of any outcome
    DestroyedInItsSlot,    ///< stopped, and destroyed in the slot of any outcome
};
Q_DECLARE_METATYPE(Death)

constexpr Death allDeaths[] = {
    Death::Stopped,      Death::StoppedAndDestroyed,   Death::Destroyed,
    Death::DeletedLater, Death::DeletedLaterInItsSlot, Death::DestroyedInItsSlot};

const char* nameOf(Death death);

/// How far a playback has come.
enum class Moment
{
    Started,
    Prerolling, ///< the card is set up
    FirstFrame,
    Middle,
    Last50Ms,
    Ended, ///< the end is told
};

constexpr Moment allMoments[] = {Moment::Started, Moment::Prerolling, Moment::FirstFrame,
                                 Moment::Middle,  Moment::Last50Ms,   Moment::Ended};

const char* nameOf(Moment moment);

/// One player from its construction to its death, on the thread that makes it.
class Life
{
public:
    Life(const Stage& stage, Death death);
    ~Life();
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    void start() const;

    /// Runs the event loop until playback has come so far, or further.
    void reach(Moment moment) const;
    /// How far playback has come.
    Moment now() const;

    /// Ends the life. @return what went wrong, empty for nothing
    QString die();

    /// Runs the event loop until the player has died in its own slot. @return whether it did
    bool waitUntilDead() const;

    /// The outcomes so far. A push that a stop overtakes is told beside them, and left out here.
    QStringList told() const;

    const QPointer<SimplePlayer> player;

private:
    void bury();
    QString judge(const QStringList& before) const;

    const Stage& stage;
    const Death death;
    Outcomes outcomes;
};

#endif
