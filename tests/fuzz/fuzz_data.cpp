// Any bytes, played from memory.

#include "fuzz/FuzzProcess.h"

#include <simplePlayer/DataSimplePlayer.h>

FUZZ_TARGET
{
    const QByteArray item(reinterpret_cast<const char*>(bytes), static_cast<int>(size));
    playToTheEnd(std::make_unique<DataSimplePlayer>(item, QStringLiteral("token"), QString()));
    return 0;
}
