#include "simplePlayer/AudioOutputChain.h"
#include "simplePlayer/GstOwners_p.h"
#include "simplePlayer/Logging_p.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance("SimplePlayer");

GstElement* makeElement(const char* factory, const char* name)
{
    GstElement* element = gst_element_factory_make(factory, name);
    if (!element) {
        LOG_LINE(ERROR, "could not create ", factory, " element");
    }
    return element;
}

AudioOutputChain::AudioOutputChain(GstElement*& queueMember, GstElement*& sinkMember)
    : queue(queueMember), sink(sinkMember)
{
}

bool AudioOutputChain::make(const QString& device)
{
    // Elements that were created before a failure are abandoned: building a pipeline never rolls
    // back. They are in no bin, and their references stay floating.
    return makeConverters() && makeSink(device);
}

bool AudioOutputChain::makeConverters()
{
    return (queue = makeElement("queue", "Queue")) &&
           (audioconvert = makeElement("audioconvert", "AudioConvert")) &&
           (audioresample = makeElement("audioresample", "AudioResample"));
}

bool AudioOutputChain::makeSink(const QString& device)
{
    sink = makeElement("alsasink", "AudioSink");
    if (!sink) {
        return false;
    }
    g_object_set(sink, "device", device.toUtf8().constData(), nullptr);
    return true;
}

bool AudioOutputChain::link() const
{
    return gst_element_link_many(queue, audioconvert, audioresample, sink, nullptr);
}

/// Whether the name of the first structure in the pad's caps contains "audio".
static bool carriesAudio(GstPad* pad)
{
    const gst::Caps caps(gst_pad_query_caps(pad, nullptr));
    // ANY and EMPTY caps have no structure.
    if (gst_caps_get_size(caps.get()) == 0) {
        return false;
    }
    const gchar* name = gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
    return g_strrstr(name, "audio") != nullptr;
}

DecodedPad linkDecodedPad(GstPad* pad, GstElement* queue, const char* skipText,
                          const QString& skipWhat)
{
    // The new pad is tested, not the pad of the queue.
    if (gst_pad_is_linked(pad)) {
        LOG_LINE(WARN, "Cannot link already linked pad - skipping");
        return DecodedPad::AlreadyLinked;
    }
    if (!carriesAudio(pad)) {
        LOG_LINE(WARN, skipText, skipWhat);
        return DecodedPad::NotAudio;
    }
    // The result is ignored: of several audio streams only the first one is played, and the failed
    // links of the others are not worth a warning.
    gst_pad_link(pad, gst::Pad(gst_element_get_static_pad(queue, "sink")).get());
    return DecodedPad::Offered;
}
