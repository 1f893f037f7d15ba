#include "kit/PlayerProbe.h"

#include "kit/LogCapture.h"

PlayerProbe::PlayerProbe(SimplePlayer* playerToHold) : player(playerToHold), outcomes(playerToHold)
{
}

PlayerProbe::~PlayerProbe() = default;

bool PlayerProbe::waitForOutcome() const
{
    return waitFor([this] { return !outcomes.all.isEmpty(); });
}

QStringList PlayerProbe::finish()
{
    waitForOutcome();
    player->stopPlayback();
    deliverQueuedEvents();
    return destroy();
}

bool PlayerProbe::pauseAndSettle() const
{
    const LogCapture log;
    const QString atRest("old: PLAYING new: PAUSED pending: VOID_PENDING");
    return player->pausePlayback() &&
           waitFor([&] { return log.texts("TRACE").filter(atRest).size() == 1; });
}

QStringList PlayerProbe::destroy()
{
    player.reset();
    deliverQueuedEvents();
    return outcomes.all;
}
