#ifndef VIRTUALCARD_CARD_CLOCK_H
#define VIRTUALCARD_CARD_CLOCK_H

#include "EventLog.h"

#include <cstdint>

/// The oscillator of a card: turns the monotonic clock into frames and back.
class CardClock
{
public:
    /// @param framesPerSecond  the rate of the card
    /// @param speed            how many times faster than real time the card plays
    void configure(unsigned framesPerSecond, double speed);

    /// Sets the clock to `frames` at the time `now`; it runs on from there.
    void set(Nanoseconds now, std::int64_t frames);

    /// Returns the number of whole frames played at a time.
    std::int64_t framesAt(Nanoseconds time) const;

    /// Returns the first time at which `frames` whole frames have been played.
    Nanoseconds timeOf(std::int64_t frames) const;

private:
    double framesPerNanosecond = 0.0;
    Nanoseconds originTime = 0;
    std::int64_t originFrames = 0;
};

#endif
