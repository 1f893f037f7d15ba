#ifndef KOVA_PLAY_TRACING_H
#define KOVA_PLAY_TRACING_H

#include "Missing.h"

#include <QtCore/QString>

#include <gst/gst.h>

#include <chrono>
#include <mutex>

class Console;

/// What GStreamer does in the pipeline of one player, as its tracing hooks report it. The player is
/// a client's as any other: nothing in it knows of this.
///
/// Nothing is observed before Tracing was switched on, or by a GStreamer without hooks.
class PipelineTrace
{
public:
    using Clock = std::chrono::steady_clock;

    /// Moments of a start. Those that have not come are the epoch of the clock.
    struct Moments
    {
        Clock::time_point makingBegins; ///< the player is made
        Clock::time_point made;         ///< it was
        Clock::time_point startBegins;  ///< the player is started
        Clock::time_point startEnds;    ///< it was
        Clock::time_point deviceBegins; ///< the device is opened
        Clock::time_point deviceOpen;   ///< it was
        Clock::time_point firstSound;   ///< the device has got the first frames
        Clock::time_point outcome;      ///< the outcome is known
    };

    PipelineTrace();
    ~PipelineTrace();
    PipelineTrace(const PipelineTrace&) = delete;
    PipelineTrace& operator=(const PipelineTrace&) = delete;

    /// Observes the pipelines that are set in motion by this thread while this object exists.
    class Scope
    {
    public:
        explicit Scope(PipelineTrace& trace);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

    /// The plug-ins that the pipeline lacks.
    Missing missing() const;
    Moments moments() const;
    /// Takes note that a moment is now, if it has not come before.
    void mark(Clock::time_point Moments::*moment);

private:
    friend class Tracing;

    mutable std::mutex mutex;
    Missing reported;
    Moments observed;
    QString openedFormat;
};

/// Switches the observation of pipelines on, for the rest of the process.
class Tracing
{
public:
    /// After GStreamer was initialised and before the first pipeline is made.
    /// @param output      prints the format of each device that is opened, when it is not null;
    /// must
    ///                    outlive all pipelines
    /// @param firstSound  whether to look for that moment, which costs a little for each buffer
    static void begin(Console* output, bool firstSound);

private:
    // The hooks. On any thread.
    static void onMessage(GObject* self, GstClockTime time, GstElement* element,
                          GstMessage* message);
    static void onStateChangeBegins(GObject* self, GstClockTime time, GstElement* element,
                                    GstStateChange change);
    static void onStateChangeEnds(GObject* self, GstClockTime time, GstElement* element,
                                  GstStateChange change, GstStateChangeReturn result);
    static void onPushEnds(GObject* self, GstClockTime time, GstPad* pad, GstFlowReturn result);

    static void noteFormat(PipelineTrace& trace, GstElement* pipeline);
};

#endif
