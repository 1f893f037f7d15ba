#ifndef KIT_PLAYER_PROBE_H
#define KIT_PLAYER_PROBE_H

#include "kit/Outcomes.h"
#include "kit/Waiting.h"

#include <memory>

/// Holds one player and what it reports, on the thread that makes it.
class PlayerProbe
{
public:
    /// @param player  is taken over; its token should be "token"
    explicit PlayerProbe(SimplePlayer* player);
    ~PlayerProbe();
    PlayerProbe(const PlayerProbe&) = delete;
    PlayerProbe& operator=(const PlayerProbe&) = delete;

    SimplePlayer* operator->() const { return player.get(); }

    /// Runs the event loop until an outcome was reported. @return whether there was one in time
    bool waitForOutcome() const;

    /// Waits for the outcome, then proves that no further one follows: the player is stopped, the
    /// report of that stop and everything that was queued before it are delivered, the player is
    /// deleted, and the loop is run dry once more.
    /// @return all outcomes of the player's life, as Outcomes writes them
    QStringList finish();

    /// Pauses and waits until the whole pipeline has come to rest. @return whether it did
    bool pauseAndSettle() const;

    /// Deletes the player now, silently, and runs the event loop dry. @return all its outcomes
    QStringList destroy();

    std::unique_ptr<SimplePlayer> player;
    Outcomes outcomes;
};

#endif
