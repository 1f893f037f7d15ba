// Any bytes, played from memory.

#include "fuzz/FuzzProcess.h"

#include <simplePlayer/DataSimplePlayer.h>

FUZZ_TARGET
{
    playToTheEnd(std::make_unique<DataSimplePlayer>(InputReader(bytes, size).rest(),
                                                    QStringLiteral("token"), QString()));
    return 0;
}
