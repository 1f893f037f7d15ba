#ifndef LIFECYCLE_SCENARIO_H
#define LIFECYCLE_SCENARIO_H

#include "Playback.h"

#include <functional>
#include <vector>

/// The items of the scenarios. Each fits into a FIFO.
struct Items
{
    Items();

    const Item sound; ///< a tenth of a second
    const Item compressed;
    const Item text; ///< no audio
    const Item empty;
    const Item missing; ///< its file does not exist
};

/// What happens to a player before its teardown.
struct Situation
{
    const char* name;
    bool (*suits)(const Source& source);
    /// Brings a new player into the situation. @return whether it gets there
    bool (*reach)(Playback& playback);
    const Item Items::*item = &Items::sound;
    enum Fault
    {
        None,
        NoDevice,
        VanishingCard, ///< unplugged after a random number of frames
    } fault = None;
    /// Whether the player opens its card twice. The card is locked by a file descriptor, which a
    /// process that another thread starts shares for a moment: the second opening may be refused.
    bool reopensCard = false;
};

/// A lifecycle of a player: construction, a situation, teardown.
struct Scenario
{
    const Source* source;
    const Situation* situation;
    Teardown teardown;

    /// All scenarios. Each sixth of them has every situation of every source once, so that a few
    /// sixths suffice to measure what a lifecycle leaves behind.
    static const std::vector<Scenario>& all();

    QString name() const;

    /// Runs it on the calling thread.
    /// @param cardName    no other card has it
    /// @param atTeardown  called between the situation and the teardown
    /// @return what is wrong with the outcomes; empty for nothing
    QString run(const Items& items, QRandomGenerator& random,
                const QString& cardName = QStringLiteral("card"),
                const std::function<void(const Playback&)>& atTeardown = {}) const;
};

#endif
