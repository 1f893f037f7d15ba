#ifndef KIT_SOURCE_ENGINE_H
#define KIT_SOURCE_ENGINE_H

#include "kit/Source.h"

#include <simplePlayer/SimplePlayerInterface_p.h>

/// What is protected in an engine, for tests that link the library's objects.
struct EngineAccess : SimplePlayerImpl
{
    static GstElement*& pipelineOf(SimplePlayerImpl& engine)
    {
        return engine.*&EngineAccess::pipeline;
    }
    static bool& initializedOf(SimplePlayerImpl& engine)
    {
        return engine.*&EngineAccess::initialized;
    }
};

/// The engine of a front object, which every front class creates as its child. Null for FakePlayer.
inline SimplePlayerImpl* engineOf(const SimplePlayer& player)
{
    return player.findChild<SimplePlayerImpl*>();
}

#endif
