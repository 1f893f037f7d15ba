#include "sequences/Step.h"

#include <map>

Sequence everydaySteps(Source source)
{
    const Sequence common = "spxldrEFWCI";
    switch (source) {
    case Source::Uri:
        return common;
    case Source::Data:
        return common + "f";
    case Source::Stream:
        return common + "bgf";
    }
    return common;
}

Sequence allSteps(Source source)
{
    const Sequence common = everydaySteps(source) + "Umtc";
    switch (source) {
    case Source::Uri:
        return common + "q";
    case Source::Data:
        return common + "nk";
    case Source::Stream:
        return common + "no";
    }
    return common;
}

Sequence certainSteps(Source source)
{
    // Whether a source can seek at this very moment is not certain.
    return source == Source::Uri ? "spxdrEFWCI" : "spxldrEFWCI";
}

std::string inWords(const Sequence& sequence)
{
    static const std::map<char, const char*> words{{'s', "start"},
                                                   {'p', "pause"},
                                                   {'x', "stop"},
                                                   {'l', "switch loop"},
                                                   {'d', "destroy"},
                                                   {'r', "run the event loop"},
                                                   {'E', "end of stream"},
                                                   {'F', "error"},
                                                   {'U', "error without a text"},
                                                   {'W', "warning"},
                                                   {'C', "state change of the pipeline"},
                                                   {'I', "state change of an element"},
                                                   {'b', "block written"},
                                                   {'g', "writer gone"},
                                                   {'f', "push refused"},
                                                   {'n', "need-data"},
                                                   {'o', "enough-data"},
                                                   {'k', "seek-data"},
                                                   {'q', "switch: seek refused"},
                                                   {'m', "switch: plug-in missing"},
                                                   {'t', "switch: state change refused"},
                                                   {'c', "switch: stop in the slot"}};
    std::string text;
    for (const char letter : sequence) {
        const auto word = words.find(letter);
        text += (text.empty() ? "" : ", ");
        text += word == words.end() ? "?" : word->second;
    }
    return text;
}
