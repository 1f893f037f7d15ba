#include "sequences/Step.h"

#include <map>

static const Sequence commonSteps = "spxldrEFWCI";

Sequence frequentSteps(const Source& source)
{
    return source.hasWriter         ? commonSteps + "bgf"
           : source.reportsRefusals ? commonSteps + "f"
                                    : commonSteps;
}

Sequence allSteps(const Source& source)
{
    const Sequence steps = frequentSteps(source) + "Umtc";
    return source.hasWriter ? steps + "no" : source.reportsRefusals ? steps + "nk" : steps + "q";
}

Sequence certainSteps(const Source& source)
{
    // Whether a source can seek at this moment is not certain.
    return source.loops ? "spxdrEFWCI" : commonSteps;
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
