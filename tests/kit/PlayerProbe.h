#ifndef KIT_PLAYER_PROBE_H
#define KIT_PLAYER_PROBE_H

#include "kit/Outcomes.h"
#include "kit/Waiting.h"

#include <memory>

/// Owns one player and records its reports, on the thread that creates it.
class PlayerProbe
{
public:
    /// @param player  becomes owned; its token should be "token"
    explicit PlayerProbe(SimplePlayer* player);
    ~PlayerProbe();
    PlayerProbe(const PlayerProbe&) = delete;
    PlayerProbe& operator=(const PlayerProbe&) = delete;

    SimplePlayer* operator->() const { return player.get(); }

    /// Runs the event loop until an outcome was reported. @return whether there was one in time
    bool waitForOutcome() const;

    /// Waits for the outcome, then proves that no further one follows: the player is stopped, the
    /// report of that stop and everything that was queued before it are delivered, the player is
    /// deleted, and all queued events are delivered again.
    /// @return all outcomes of the player, as Outcomes writes them
    QStringList finish();

    /// Pauses and waits until the whole pipeline is paused. @return whether it is in time
    bool pauseAndSettle() const;

    /// Deletes the player without a stop and delivers all queued events. @return all its outcomes
    QStringList destroy();

    std::unique_ptr<SimplePlayer> player;
    Outcomes outcomes;
};

#endif
