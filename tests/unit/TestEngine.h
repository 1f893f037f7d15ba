#ifndef UNIT_TEST_ENGINE_H
#define UNIT_TEST_ENGINE_H

#include "kit/GstFaults.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/Waiting.h"

#include <simplePlayer/SimplePlayerInterface_p.h>

#include <functional>

/// An engine whose pipeline the test decides, with everything that is protected within reach.
class TestEngine : public SimplePlayerImpl
{
public:
    TestEngine(const QString& itemToken, const QString& outputDevice, SimplePlayer* frontObject)
        : SimplePlayerImpl(itemToken, outputDevice, frontObject)
    {
    }

    bool initPipeline(GstElement* bin) override
    {
        ++builds;
        return build(bin);
    }

    bool restartPlayback() override
    {
        ++restarts;
        return restart ? restart() : SimplePlayerImpl::restartPlayback();
    }

    using SimplePlayerImpl::device;
    using SimplePlayerImpl::endReported;
    using SimplePlayerImpl::initialized;
    using SimplePlayerImpl::pipeline;
    using SimplePlayerImpl::player;
    using SimplePlayerImpl::token;

    /// What initPipeline() does. The default plays silence for ever.
    std::function<bool(GstElement* bin)> build = addEndlessSource;
    /// What restartPlayback() does; empty calls the base.
    std::function<bool()> restart;
    int builds = 0;
    int restarts = 0;

    static bool addEndlessSource(GstElement* bin) { return addSource(bin, -1); }
    static bool addShortSource(GstElement* bin) { return addSource(bin, 5); }

    /// Adds an element that refuses a state change, and keeps a pointer to it.
    static std::function<bool(GstElement*)> addRefusing(GstStateChange refused,
                                                        GstElement** kept = nullptr)
    {
        return [refused, kept](GstElement* bin) {
            GstElement* element = makeRefusingElement(refused);
            if (kept) {
                *kept = element;
            }
            return gst_bin_add(GST_BIN(bin), element) != FALSE;
        };
    }

private:
    static bool addSource(GstElement* bin, int buffers)
    {
        GstElement* source = gst_element_factory_make("fakesrc", nullptr);
        GstElement* sink = gst_element_factory_make("fakesink", nullptr);
        g_object_set(source, "num-buffers", buffers, nullptr);
        gst_bin_add_many(GST_BIN(bin), source, sink, nullptr);
        return gst_element_link(source, sink);
    }
};

/// A front object that owns a TestEngine, made like the real ones.
class TestPlayer : public SimplePlayer
{
public:
    explicit TestPlayer(const QString& token = QStringLiteral("T"), QObject* parent = nullptr)
        : SimplePlayer(parent), engine(new TestEngine(token, QStringLiteral("device"), this))
    {
    }

    bool startPlayback() override { return engine->startPlayback(); }
    bool pausePlayback() override { return engine->pausePlayback(); }
    bool stopPlayback() override { return engine->stopPlayback(); }

    TestEngine* engine;
};

/// A player with its log and its outcomes.
struct EngineFixture
{
    LogCapture log;
    TestPlayer player;
    Outcomes outcomes{&player};
    TestEngine& engine = *player.engine;
};

/// An error message as an element posts it.
/// @param source  may be null
inline GstMessage* errorMessage(GstObject* source, const char* text)
{
    GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, text);
    GstMessage* message = gst_message_new_error(source, error, "details");
    g_error_free(error);
    return message;
}

/// The current state of a pipeline once all asynchronous state changes are done.
inline GstState settledState(GstElement* pipeline)
{
    GstState state = GST_STATE_VOID_PENDING;
    gst_element_get_state(pipeline, &state, nullptr, patience * GST_MSECOND);
    return state;
}

/// Entry and leave lines of the engines in a LogCapture.
inline QString enterLine(const char* level, const char* function, const char* details = "token: T")
{
    return QStringLiteral("%1 Enter SimplePlayer %2: %3").arg(level, function, details);
}

inline QString leaveLine(const char* level, const char* function, const char* details = "token: T")
{
    return QStringLiteral("%1 Leave SimplePlayer %2: %3").arg(level, function, details);
}

/// The lines of releaseGstPipeline() with a pipeline.
inline QStringList releasing()
{
    return {enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline"),
            "TRACE Releasing active playback pipeline",
            leaveLine("TRACE", "SimplePlayerImpl::releaseGstPipeline")};
}

// Texts that several tests expect in the log.
inline const QString setupFailure("Failed to setup gst pipeline of simple player");
inline const QString notPausing("Pipeline not initialized - not pausing");
inline const QString notStopping("Pipeline not initialized - not stopping");
inline const QString alreadyReported("End of playback already reported");
inline const QString restartRefused("Restart(loop) playback not implemented");
inline const QString alreadyLinked("Cannot link already linked pad - skipping");

#endif
