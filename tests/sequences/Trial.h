#ifndef TEST_SEQUENCES_TRIAL_H
#define TEST_SEQUENCES_TRIAL_H

#include "sequences/PlayerModel.h"
#include "sequences/Step.h"

#include <functional>
#include <memory>
#include <vector>

/// The process in which players are tried: Qt, the items to play, and GStreamer with nothing but
/// inert elements, or with its real ones and a virtual sound card that stands still before the item
/// ends.
class TrialWorld
{
public:
    TrialWorld(int& argc, char** argv, bool realElements);
    ~TrialWorld();
    TrialWorld(const TrialWorld&) = delete;
    TrialWorld& operator=(const TrialWorld&) = delete;

private:
    class Parts;
    const std::unique_ptr<Parts> parts;
};

/// Gives one player a sequence, step by step, then runs the event loop, destroys it and looks what
/// is left of it. Steps that cannot happen are left out.
/// @return what differs from the model, or nothing
QString differenceOf(Source source, const Sequence& sequence);

/// All sequences of one length: those that end with the destruction, and those after which the
/// event loop is run and the player destroyed. Every shorter one is the beginning of one of them.
class AllSequences
{
public:
    /// @param steps  what they are made of
    /// @param about  told each sequence before it is tried
    AllSequences(Source source, const Sequence& steps, std::function<void(const Sequence&)> about);

    /// Tries them until one differs.
    /// @return what differs from the model, or nothing
    QString differenceOfLength(int length);

    quint64 tried = 0; ///< sequences of the last call

private:
    QString descend(const PlayerModel& model, int remaining);
    QString tryOne(const PlayerModel& model);

    const Source source;
    const Sequence steps;
    const std::function<void(const Sequence&)> about;
    Sequence sequence;
    std::vector<Observation> expected; ///< after the construction and after each step
};

/// A sequence of steps that can happen, drawn by chance; the player is not destroyed.
/// @param steps  what it is made of
Sequence randomSequence(Source source, const Sequence& steps, int length, quint32 seed);

/// A sequence that fails too, from which no step can be taken away any more.
/// @param fails  whether a sequence fails
Sequence shortened(Sequence sequence, const std::function<bool(const Sequence&)>& fails);

#endif
