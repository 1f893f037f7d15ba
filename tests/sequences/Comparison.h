#ifndef TEST_SEQUENCES_COMPARISON_H
#define TEST_SEQUENCES_COMPARISON_H

#include "sequences/PlayerModel.h"
#include "sequences/Step.h"

#include <functional>
#include <memory>
#include <vector>

class VirtualCard;

/// GStreamer with inert elements only, or with its real ones and a virtual sound card that stalls
/// before the item ends. Made once, before GStreamer is initialised.
class Environment
{
public:
    explicit Environment(bool realElements);
    ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    void makeInert();
    void makeReal();

    std::unique_ptr<VirtualCard> card;
};

/// Takes a new player through a sequence, step by step, then runs the event loop, destroys it and
/// looks for what it leaves behind. Impossible steps are left out.
/// @return what differs from the model; empty for nothing
QString differenceOf(const Source& source, const Sequence& sequence);

/// All sequences of one length: those that end with the destruction, and those after which the
/// event loop runs and the player is destroyed. Every shorter one is the beginning of one of them.
class AllSequences
{
public:
    /// @param steps  what they are made of
    /// @param about  called with each sequence before it is run
    AllSequences(const Source& source, const Sequence& steps,
                 std::function<void(const Sequence&)> about);

    /// Runs them until one differs.
    /// @return what differs from the model; empty for nothing
    QString differenceOfLength(int length);

    quint64 count = 0; ///< sequences of the last call

private:
    QString descend(const PlayerModel& model, int remaining);
    QString runOne(const PlayerModel& model);

    const Source& source;
    const Sequence steps;
    const std::function<void(const Sequence&)> about;
    Sequence sequence;
    std::vector<Observation> expected; ///< after the construction and after each step
};

/// A random sequence of possible steps. The player is not destroyed.
/// @param steps  what it is made of
Sequence randomSequence(const Source& source, const Sequence& steps, int length, quint32 seed);

/// A sequence that fails too, and passes without any one of its steps.
/// @param fails  whether a sequence fails
Sequence shortened(Sequence sequence, const std::function<bool(const Sequence&)>& fails);

#endif
