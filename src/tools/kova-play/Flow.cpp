#include "Flow.h"

#include <gst/audio/gstaudiobasesink.h>

#include <atomic>

namespace {

/// After how many milliseconds without progress a card counts as stalled. A busy machine must not
/// look like a stalled card.
constexpr qint64 standstill = 1000;

std::atomic_int buffers = 0; // that have reached a sink

GstPadProbeReturn countBuffer(GstPad* /*pad*/, GstPadProbeInfo* /*info*/, gpointer /*data*/)
{
    ++buffers;
    return GST_PAD_PROBE_OK;
}

bool isSoundSink(GstElement* element)
{
    const GstElementFactory* factory = gst_element_get_factory(element);
    return factory && g_str_equal(GST_OBJECT_NAME(factory), "alsasink");
}

/// Whether samples are on their way into the sink, which takes them when the card has room.
bool hasSamples(GstElement* sink)
{
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    const bool idle = GST_PAD_STREAM_TRYLOCK(pad);
    if (idle) {
        GST_PAD_STREAM_UNLOCK(pad);
    }
    gst_object_unref(pad);
    return !idle;
}

/// How many pieces of sound or silence the card has taken. Unlike the sink's position this never
/// waits for the card.
int takenByCard(GstElement* sink)
{
    GST_OBJECT_LOCK(sink);
    GstAudioRingBuffer* ringBuffer = reinterpret_cast<GstAudioBaseSink*>(sink)->ringbuffer;
    const int segments = ringBuffer ? g_atomic_int_get(&ringBuffer->segdone) : 0;
    GST_OBJECT_UNLOCK(sink);
    return segments;
}

} // namespace

Flow::Flow()
{
    g_weak_ref_init(&sink, nullptr);
    gpointer binClass = g_type_class_ref(GST_TYPE_BIN); // its signals exist from now on
    addedSignal = g_signal_lookup("element-added", GST_TYPE_BIN);
    hook = g_signal_add_emission_hook(addedSignal, 0, noteElement, this, nullptr);
    g_type_class_unref(binClass);
    sinceMove.start();
}

Flow::~Flow()
{
    g_signal_remove_emission_hook(addedSignal, hook);
    g_weak_ref_clear(&sink);
}

gboolean Flow::noteElement(GSignalInvocationHint* /*hint*/, guint /*count*/, const GValue* values,
                           gpointer flow)
{
    auto* element = static_cast<GstElement*>(g_value_get_object(&values[1]));
    if (isSoundSink(element)) {
        GstPad* pad = gst_element_get_static_pad(element, "sink");
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, countBuffer, nullptr, nullptr);
        gst_object_unref(pad);
        g_weak_ref_set(&static_cast<Flow*>(flow)->sink, element);
    }
    return TRUE;
}

Flow::State Flow::look()
{
    auto* element = static_cast<GstElement*>(g_weak_ref_get(&sink));
    if (element != seenSink) {
        seenSink = element;
        idleBefore = 0;
        sinceMove.start();
    }
    const bool samples = element && hasSamples(element);
    const int segments = element ? takenByCard(element) : 0;
    g_clear_object(&element);

    // A card goes on with silence when the samples run out.
    const int count = buffers;
    if (segments != seenSegments && (samples || count != seenBuffers)) {
        hold();
        seenSegments = segments;
        seenBuffers = count;
    }
    if (!standsStill()) {
        return State::Running;
    }
    return samples ? State::Stalled : State::NoData;
}

void Flow::hold()
{
    idleBefore = idle();
    sinceMove.start();
}

qint64 Flow::idle() const
{
    return idleBefore + (standsStill() ? sinceMove.elapsed() : 0);
}

bool Flow::standsStill() const
{
    return sinceMove.hasExpired(standstill);
}
