#include "CardClock.h"

#include <cmath>

void CardClock::configure(unsigned framesPerSecond, double speed)
{
    framesPerNanosecond = framesPerSecond * speed / 1e9;
}

void CardClock::set(Nanoseconds now, std::int64_t frames)
{
    originTime = now;
    originFrames = frames;
}

std::int64_t CardClock::framesAt(Nanoseconds time) const
{
    const auto elapsed = static_cast<double>(time - originTime);
    return originFrames + static_cast<std::int64_t>(std::floor(elapsed * framesPerNanosecond));
}

Nanoseconds CardClock::timeOf(std::int64_t frames) const
{
    const auto ahead = static_cast<double>(frames - originFrames);
    Nanoseconds time =
        originTime + static_cast<Nanoseconds>(std::ceil(ahead / framesPerNanosecond));
    // Rounding down would wake a waiting client one nanosecond too early, with nothing to do.
    while (framesAt(time) < frames) {
        ++time;
    }
    return time;
}
