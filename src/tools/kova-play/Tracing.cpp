// The hooks have been the same since GStreamer 1.8.
#define GST_USE_UNSTABLE_API

#include "Tracing.h"

#include "Caps.h"
#include "Console.h"
#include "Owners.h"

#include <gst/gsttracer.h>

#include <map>

namespace {

Console* console = nullptr;

/// The pipelines that are observed. Those of a trace are removed with it.
std::mutex tracesMutex;
std::map<GstElement*, PipelineTrace*> traces;

/// The trace of the player that this thread is starting.
thread_local PipelineTrace* starting = nullptr;

bool isSink(GstElement* element)
{
    const GstElementFactory* factory = gst_element_get_factory(element);
    return factory && g_strcmp0(GST_OBJECT_NAME(factory), "alsasink") == 0;
}

/// The device's sink of a pipeline; null when it has none yet.
gst::Element sinkOf(GstElement* pipeline)
{
    const gst::Iterator sinks(gst_bin_iterate_sinks(GST_BIN(pipeline)));
    GValue item = G_VALUE_INIT;
    gst::Element sink;
    if (gst_iterator_next(sinks.get(), &item) == GST_ITERATOR_OK) {
        sink.reset(GST_ELEMENT(g_value_dup_object(&item)));
        g_value_unset(&item);
    }
    return sink && isSink(sink.get()) ? std::move(sink) : gst::Element();
}

/// Calls a function with the trace of a pipeline, if it has one.
template <typename Function>
void withTrace(GstObject* pipeline, Function function)
{
    const std::lock_guard<std::mutex> lock(tracesMutex);
    const auto found = traces.find(reinterpret_cast<GstElement*>(pipeline));
    if (found != traces.end()) {
        function(*found->second);
    }
}

/// GStreamer wants a tracer as the owner of hooks. This one has no functions of its own.
GstTracer* makeTracer()
{
    GTypeQuery parent;
    g_type_query(GST_TYPE_TRACER, &parent);
    const GType type = g_type_register_static_simple(
        GST_TYPE_TRACER, "KovaPlayTracer", static_cast<guint>(parent.class_size), nullptr,
        static_cast<guint>(parent.instance_size), nullptr, static_cast<GTypeFlags>(0));
    return GST_TRACER(g_object_new(type, nullptr));
}

} // namespace

// ---- PipelineTrace -----------------------------------------------------------------------------

PipelineTrace::PipelineTrace() = default;

PipelineTrace::~PipelineTrace()
{
    const std::lock_guard<std::mutex> lock(tracesMutex);
    for (auto entry = traces.begin(); entry != traces.end();) {
        entry = entry->second == this ? traces.erase(entry) : std::next(entry);
    }
}

PipelineTrace::Scope::Scope(PipelineTrace& trace)
{
    starting = &trace;
}

PipelineTrace::Scope::~Scope()
{
    starting = nullptr;
}

Missing PipelineTrace::missing() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return reported;
}

PipelineTrace::Moments PipelineTrace::moments() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return observed;
}

void PipelineTrace::mark(Clock::time_point Moments::*moment)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (observed.*moment == Clock::time_point()) {
        observed.*moment = Clock::now();
    }
}

// ---- Tracing -----------------------------------------------------------------------------------

void Tracing::begin(Console* output, bool firstSound)
{
    console = output;
    GstTracer* tracer = makeTracer(); // each hook keeps it
    gst_tracing_register_hook(tracer, "element-post-message-pre", G_CALLBACK(onMessage));
    gst_tracing_register_hook(tracer, "element-change-state-pre", G_CALLBACK(onStateChangeBegins));
    gst_tracing_register_hook(tracer, "element-change-state-post", G_CALLBACK(onStateChangeEnds));
    if (firstSound) {
        gst_tracing_register_hook(tracer, "pad-push-post", G_CALLBACK(onPushEnds));
    }
    gst_object_unref(tracer);
}

void Tracing::onMessage(GObject* /*self*/, GstClockTime /*time*/, GstElement* element,
                        GstMessage* message)
{
    // Bins hand the messages of their children on: the pipeline posts all of them.
    withTrace(GST_OBJECT(element), [&](PipelineTrace& trace) {
        const std::lock_guard<std::mutex> lock(trace.mutex);
        trace.reported.note(message);
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ASYNC_DONE) {
            noteFormat(trace, element);
        }
    });
}

void Tracing::noteFormat(PipelineTrace& trace, GstElement* pipeline)
{
    const gst::Element sink = sinkOf(pipeline);
    if (!console || !sink) {
        return;
    }
    const gst::Pad pad(gst_element_get_static_pad(sink.get(), "sink"));
    const gst::Caps format(gst_pad_get_current_caps(pad.get()));
    const QString text = format ? caps::inWords(format.get()) : QString();
    if (!text.isEmpty() && text != trace.openedFormat) {
        trace.openedFormat = text;
        console->printMessage("the device was opened with " + text);
    }
}

void Tracing::onStateChangeBegins(GObject* /*self*/, GstClockTime /*time*/, GstElement* element,
                                  GstStateChange change)
{
    if (starting && GST_IS_PIPELINE(element)) {
        const std::lock_guard<std::mutex> lock(tracesMutex);
        traces[element] = starting;
    }
    if (change == GST_STATE_CHANGE_NULL_TO_READY && isSink(element)) {
        withTrace(GST_OBJECT_PARENT(element),
                  [](PipelineTrace& trace) { trace.mark(&PipelineTrace::Moments::deviceBegins); });
    }
}

void Tracing::onStateChangeEnds(GObject* /*self*/, GstClockTime /*time*/, GstElement* element,
                                GstStateChange change, GstStateChangeReturn result)
{
    if (change == GST_STATE_CHANGE_NULL_TO_READY && result != GST_STATE_CHANGE_FAILURE &&
        isSink(element)) {
        withTrace(GST_OBJECT_PARENT(element),
                  [](PipelineTrace& trace) { trace.mark(&PipelineTrace::Moments::deviceOpen); });
    }
}

void Tracing::onPushEnds(GObject* /*self*/, GstClockTime /*time*/, GstPad* pad,
                         GstFlowReturn result)
{
    if (result != GST_FLOW_OK) {
        return;
    }
    const gst::Pad peer(gst_pad_get_peer(pad));
    const gst::Element element(peer ? gst_pad_get_parent_element(peer.get()) : nullptr);
    if (element && isSink(element.get())) {
        withTrace(GST_OBJECT_PARENT(element.get()),
                  [](PipelineTrace& trace) { trace.mark(&PipelineTrace::Moments::firstSound); });
    }
}
