#ifndef TEST_SEQUENCES_STEP_H
#define TEST_SEQUENCES_STEP_H

#include <string>

/// What a player's engine gets its audio from.
enum class Source
{
    Uri,
    Data,
    Stream,
};

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

    // Messages that reach the pipeline's bus.
    EndOfStream = 'E',
    Error = 'F',
    NamelessError = 'U', ///< one whose text is empty
    Warning = 'W',
    PipelineState = 'C',
    ElementState = 'I',

    // What the source does, each on the thread where it happens in life.
    Block = 'b',       ///< stream: the writer writes a block
    WriterGone = 'g',  ///< stream: the writer closes its end
    PushRefused = 'f', ///< stream: the appsrc refuses from now on; data: it refuses one request
    NeedData = 'n',
    EnoughData = 'o', ///< stream
    SeekData = 'k',   ///< data: the appsrc goes back to the first byte

    // Circumstances, each switched on or off.
    SeekRefused = 'q',   ///< uri: the source cannot seek
    PluginMissing = 'm', ///< no alsasink can be made
    StateRefused = 't',  ///< the sink refuses the next state change, once
    StopInSlot = 'c',    ///< the client stops its player in the slot that learns the outcome
};

using Sequence = std::string;

/// All steps that make sense with a source: the calls and events of everyday life first.
Sequence everydaySteps(Source source);
Sequence allSteps(Source source);

/// Those after which it is certain what a player does with real elements, whose threads go their
/// own way: nothing that comes from a source.
Sequence certainSteps(Source source);

/// "start, run the event loop, stop"
std::string inWords(const Sequence& sequence);

#endif
