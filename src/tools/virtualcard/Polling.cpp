#include "OtherThreads.h"
#include "VirtualSoundCard.h"

#include <poll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <limits>

// When the client may write more: what it polls, and whether the card waits for it.

namespace {

constexpr Nanoseconds millisecond = 1000000;
constexpr Nanoseconds second = 1000 * millisecond;
constexpr Nanoseconds never = std::numeric_limits<Nanoseconds>::max();

/// The interval of checks whether a busy client is blocked.
constexpr Nanoseconds busyRetry = millisecond / 5;
/// After this time of a busy client, the card advances by one period.
constexpr Nanoseconds busyPatience = 500 * millisecond;
/// A client that has not polled for this long is assumed not to poll at all.
constexpr Nanoseconds pollPatience = 50 * millisecond;

} // namespace

// ---- Waiting for the client -------------------------------------------------------------------

bool VirtualSoundCard::waitsForClient() const
{
    // After the beginning of a drain the client writes no more.
    return settings.starve == CardSettings::Starve::Wait && io.state != SND_PCM_STATE_DRAINING;
}

/// Allows the card to play one more period. A clock that ran on meanwhile keeps its time unless it
/// is more than that period ahead.
void VirtualSoundCard::allowNextPeriod(Nanoseconds now)
{
    allowed = played + static_cast<std::int64_t>(io.period_size);
    busySince = 0;
    if (!paused && clock.framesAt(now) > allowed) {
        clock.set(now, allowed);
    }
}

/// A client that never polls cannot be observed to wait. The card does not wait for it.
void VirtualSoundCard::allowWithoutPolling(Nanoseconds now)
{
    if (waitsForClient() && played == allowed && now - polledAt > pollPatience) {
        allowNextPeriod(now);
    }
}

/// Called by a client thread that waits for room: if all others are blocked, the card advances.
void VirtualSoundCard::lookAfterClient()
{
    // Check the threads without a lock: a thread that waits for the lock would seem blocked.
    const Nanoseconds since = restingSince();
    const bool resting = since != never && othersWereAsleep(since);
    const std::lock_guard<std::mutex> guard(mutex);
    const Nanoseconds now = monotonicNow();
    polledAt = now;
    if (since == never || !started) {
        return;
    }
    if (busySince == 0) {
        busySince = now;
    }
    if (resting || now - busySince > busyPatience) {
        allowNextPeriod(now);
    }
}

/// Returns when the card had played all frames that it is allowed to play, or `never`.
Nanoseconds VirtualSoundCard::restingSince()
{
    const std::lock_guard<std::mutex> guard(mutex);
    const bool rests =
        started && !paused && waitsForClient() && clock.framesAt(monotonicNow()) >= allowed;
    return rests ? clock.timeOf(allowed) : never;
}

// ---- Polling ----------------------------------------------------------------------------------

int VirtualSoundCard::pollDescriptors(pollfd* descriptors, unsigned space)
{
    if (space < 1) {
        return 0;
    }
    const std::lock_guard<std::mutex> guard(mutex);
    armTimer();
    *descriptors = {timer.get(), POLLIN, 0};
    return 1;
}

int VirtualSoundCard::pollRevents(unsigned short* revents)
{
    setWaitingForCard(true);
    lookAfterClient();
    snd_pcm_avail_update(io.pcm);

    const std::lock_guard<std::mutex> guard(mutex);
    *revents = pollEvents();
    armTimer();
    // Without an event the client will wait again.
    setWaitingForCard(*revents == 0);
    return 0;
}

unsigned short VirtualSoundCard::pollEvents() const
{
    switch (io.state) {
    case SND_PCM_STATE_PREPARED:
    case SND_PCM_STATE_RUNNING:
    case SND_PCM_STATE_PAUSED:
        return hasRoom() ? POLLOUT : 0;
    case SND_PCM_STATE_DRAINING:
        return 0;
    default:
        return POLLOUT | POLLERR;
    }
}

bool VirtualSoundCard::hasRoom() const
{
    return queued() + availMin <= io.buffer_size;
}

/// Sets the timer of the poll descriptor to the next time at which the client has something to do.
void VirtualSoundCard::armTimer()
{
    const Nanoseconds when = wakeTime();
    itimerspec setting{};
    if (when != never) {
        // A time in the past expires at once; only zero would disable the timer.
        const Nanoseconds time = std::max<Nanoseconds>(when, 1);
        setting.it_value = {static_cast<time_t>(time / second), static_cast<long>(time % second)};
    }
    ::timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

Nanoseconds VirtualSoundCard::wakeTime() const
{
    switch (io.state) {
    case SND_PCM_STATE_PREPARED:
    case SND_PCM_STATE_PAUSED:
        // The callback that starts the stream runs before the state changes.
        if (!started || paused) {
            return hasRoom() ? 0 : never;
        }
        break;
    case SND_PCM_STATE_RUNNING:
    case SND_PCM_STATE_DRAINING:
        break;
    default:
        return 0;
    }
    return timeOfChange();
}

/// Returns when the buffer of a running stream has room or has been played, or when the card has to
/// check its client.
Nanoseconds VirtualSoundCard::timeOfChange() const
{
    const auto left = static_cast<std::int64_t>(queued());
    const bool isDraining = io.state == SND_PCM_STATE_DRAINING;
    const auto wanted =
        left + static_cast<std::int64_t>(availMin) - static_cast<std::int64_t>(io.buffer_size);
    std::int64_t frames = isDraining ? left : std::clamp<std::int64_t>(wanted, 0, left);
    if (settings.vanishAfter >= 0) {
        frames = std::min(frames, settings.vanishAfter - total);
    }
    if (settings.stallAfter >= 0) {
        if (total >= settings.stallAfter && frames > 0) {
            return never;
        }
        frames = std::min(frames, settings.stallAfter - total);
    }
    if (!waitsForClient()) {
        return clock.timeOf(played + frames);
    }
    const Nanoseconds look =
        std::max(clock.timeOf(allowed), busySince == 0 ? 0 : polledAt + busyRetry);
    return frames > 0 && played + frames > allowed ? look : clock.timeOf(played + frames);
}
