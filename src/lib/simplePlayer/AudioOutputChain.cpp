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
    // What was made before a failure is abandoned on purpose, floating and in no bin: building
    // never rolls back.
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

/// Whether the first structure of the pad's caps has "audio" anywhere in its name.
static bool carriesAudio(GstPad* pad)
{
    const gst::Caps caps(gst_pad_query_caps(pad, nullptr));
    // Caps that are ANY or EMPTY have no structure to ask.
    if (gst_caps_get_size(caps.get()) == 0) {
        return false;
    }
    const gchar* name = gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
    return g_strrstr(name, "audio") != nullptr;
}

DecodedPad linkDecodedPad(GstPad* pad, GstElement* queue, const char* skipText,
                          const QString& skipWhat)
{
    // The question is put to the new pad itself, not to the queue's.
    if (gst_pad_is_linked(pad)) {
        LOG_LINE(WARN, "Cannot link already linked pad - skipping");
        return DecodedPad::AlreadyLinked;
    }
    if (!carriesAudio(pad)) {
        LOG_LINE(WARN, skipText, skipWhat);
        return DecodedPad::NotAudio;
    }
    // The result is ignored on purpose: a second audio stream finds the queue taken, and is not
    // worth a word.
    gst_pad_link(pad, gst::Pad(gst_element_get_static_pad(queue, "sink")).get());
    return DecodedPad::Offered;
}
