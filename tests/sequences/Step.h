#ifndef TEST_SEQUENCES_STEP_H
#define TEST_SEQUENCES_STEP_H

#include "kit/Source.h"

#include <string>

/// What can happen to a player: a call of its client, or an event around it. The letters make a
/// sequence of them a word that can be typed.
enum class Step : char
{
    // Calls of the client.
    Start = 's',
    Pause = 'p',
    Stop = 'x',
    SwitchLoop = 'l', ///< sets the flag, or clears it when it is set
    Destroy = 'd',
    RunLoop = 'r', ///< runs the event loop until nothing is left to deliver

    // Messages on the pipeline's bus.
    EndOfStream = 'E',
    Error = 'F',
    NamelessError = 'U', ///< one whose text is empty
    Warning = 'W',
    PipelineState = 'C',
    ElementState = 'I',

    // Events of the source, each on the thread that causes it in a real pipeline.
    Block = 'b',       ///< with a writer: it writes a block
    WriterGone = 'g',  ///< with a writer: it closes its end
    PushRefused = 'f', ///< with a writer: the appsrc refuses from now on; else it refuses one push
    NeedData = 'n',
    EnoughData = 'o', ///< with a writer
    SeekData = 'k',   ///< the appsrc returns to the first byte

    // Circumstances, each switched on or off.
    SeekRefused = 'q',   ///< the source cannot seek
    PluginMissing = 'm', ///< no alsasink can be made
    StateRefused = 't',  ///< the sink refuses the next state change, once
    StopInSlot = 'c',    ///< the client stops its player in the slot of the outcome
};

using Sequence = std::string;

/// The most frequent calls and events of a source, and all of them.
Sequence frequentSteps(const Source& source);
Sequence allSteps(const Source& source);

/// Those after which the state of a player with real elements, which have threads of their own, is
/// certain: no events of the source.
Sequence certainSteps(const Source& source);

/// "start, run the event loop, stop"
std::string inWords(const Sequence& sequence);

#endif
