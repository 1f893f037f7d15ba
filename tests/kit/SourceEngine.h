#ifndef KIT_SOURCE_ENGINE_H
#define KIT_SOURCE_ENGINE_H

#include "kit/Source.h"

#include <simplePlayer/SimplePlayerInterface_p.h>

/// What is protected in an engine, for tests that link the library's objects.
struct EngineAccess : SimplePlayerImpl
{
    static GstElement*& pipeline(SimplePlayerImpl& engine)
    {
        return engine.*&EngineAccess::pipeline;
    }
    static bool& initialized(SimplePlayerImpl& engine)
    {
        return engine.*&EngineAccess::initialized;
    }
    static bool& endReported(SimplePlayerImpl& engine)
    {
        return engine.*&EngineAccess::endReported;
    }
    static SimplePlayer* player(SimplePlayerImpl& engine) { return engine.*&EngineAccess::player; }
    static QString& token(SimplePlayerImpl& engine) { return engine.*&EngineAccess::token; }
    static QString& device(SimplePlayerImpl& engine) { return engine.*&EngineAccess::device; }
};

/// The engine of a front object, which every front class creates as its child. Null for FakePlayer.
inline SimplePlayerImpl* engineOf(const SimplePlayer& player)
{
    return player.findChild<SimplePlayerImpl*>();
}

#endif
