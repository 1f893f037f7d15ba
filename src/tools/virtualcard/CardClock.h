#ifndef VIRTUALCARD_CARD_CLOCK_H
#define VIRTUALCARD_CARD_CLOCK_H

#include "EventLog.h"

#include <cstdint>

/// The oscillator of a card: turns the monotonic clock into frames and back.
class CardClock
{
public:
    /// @param framesPerSecond  the rate that the card was set to
    /// @param speed            how many times faster than real time the card plays
    void configure(unsigned framesPerSecond, double speed);

    /// From now on the clock shows `frames` at the time `now`, and runs on from there.
    void set(Nanoseconds now, std::int64_t frames);

    /// How many frames have been played in full at a time.
    std::int64_t framesAt(Nanoseconds time) const;

    /// The first time at which `frames` frames have been played in full.
    Nanoseconds timeOf(std::int64_t frames) const;

private:
    double framesPerNanosecond = 0.0;
    Nanoseconds originTime = 0;
    std::int64_t originFrames = 0;
};

#endif
