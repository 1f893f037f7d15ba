#include "BarePipeline.h"

#include <fcntl.h>
#include <unistd.h>

BarePipeline::BarePipeline(std::string deviceName, bool loopItem, Outcome outcomeReceiver)
    : device(std::move(deviceName)), loop(loopItem), outcome(std::move(outcomeReceiver))
{
}

BarePipeline::~BarePipeline()
{
    if (!pipeline) {
        return;
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_remove_watch(bus);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
}

void BarePipeline::start()
{
    pipeline = gst_pipeline_new(nullptr);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_add_watch(bus, watchBus, this);
    gst_object_unref(bus);

    GstElement* queue = gst_element_factory_make("queue", nullptr);
    GstElement* convert = gst_element_factory_make("audioconvert", nullptr);
    GstElement* resample = gst_element_factory_make("audioresample", nullptr);
    GstElement* sink = gst_element_factory_make("alsasink", nullptr);
    g_object_set(sink, "device", device.c_str(), nullptr);
    gst_bin_add_many(GST_BIN(pipeline), queue, convert, resample, sink, nullptr);
    gst_element_link_many(queue, convert, resample, sink, nullptr);

    decoder = makeSource(GST_BIN(pipeline));
    g_signal_connect(decoder, "pad-added", G_CALLBACK(linkPad), queue);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
}

void BarePipeline::linkPad(GstElement* /*decoder*/, GstPad* pad, void* queue)
{
    GstCaps* caps = gst_pad_query_caps(pad, nullptr);
    if (g_str_has_prefix(gst_structure_get_name(gst_caps_get_structure(caps, 0)), "audio/")) {
        GstPad* sink = gst_element_get_static_pad(GST_ELEMENT(queue), "sink");
        gst_pad_link(pad, sink);
        gst_object_unref(sink);
    }
    gst_caps_unref(caps);
}

gboolean BarePipeline::watchBus(GstBus* /*bus*/, GstMessage* message, void* self)
{
    auto* const me = static_cast<BarePipeline*>(self);
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_EOS:
        me->endOfStream();
        break;
    case GST_MESSAGE_ERROR:
        me->outcome(false);
        break;
    default:
        break;
    }
    return TRUE;
}

void BarePipeline::endOfStream()
{
    if (!loop) {
        outcome(true);
        return;
    }
    gst_element_seek(decoder, 1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                     GST_SEEK_TYPE_NONE, 0);
}

// ---- Two sources ------------------------------------------------------------------------------

namespace {

class BareUriPipeline : public BarePipeline
{
public:
    BareUriPipeline(std::string itemPath, const std::string& deviceName, bool loopItem,
                    Outcome outcomeReceiver)
        : BarePipeline(deviceName, loopItem, std::move(outcomeReceiver)), path(std::move(itemPath))
    {
    }

protected:
    GstElement* makeSource(GstBin* bin) override
    {
        GstElement* source = gst_element_factory_make("uridecodebin", nullptr);
        gchar* uri = gst_filename_to_uri(path.c_str(), nullptr);
        g_object_set(source, "uri", uri, nullptr);
        g_free(uri);
        gst_bin_add(bin, source);
        return source;
    }

private:
    const std::string path;
};

class BareStreamPipeline : public BarePipeline
{
public:
    BareStreamPipeline(const std::string& pipe, const std::string& deviceName,
                       Outcome outcomeReceiver)
        : BarePipeline(deviceName, false, std::move(outcomeReceiver)),
          descriptor(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
    }

    ~BareStreamPipeline() override { close(descriptor); }

protected:
    GstElement* makeSource(GstBin* bin) override
    {
        // As in the library, apart from the element that reads.
        GstElement* source = gst_element_factory_make("fdsrc", nullptr);
        g_object_set(source, "fd", descriptor, "blocksize", 4096U, nullptr);
        GstElement* identity = gst_element_factory_make("identity", nullptr);
        g_object_set(identity, "silent", FALSE, nullptr);
        GstElement* decodebin = gst_element_factory_make("decodebin", nullptr);
        gst_bin_add_many(bin, source, identity, decodebin, nullptr);
        gst_element_link_many(source, identity, decodebin, nullptr);
        return decodebin;
    }

private:
    const int descriptor;
};

} // namespace

std::unique_ptr<Playback> makeBareUriPipeline(const std::string& item, const std::string& device,
                                              bool loop, Outcome outcome)
{
    return std::make_unique<BareUriPipeline>(item, device, loop, std::move(outcome));
}

std::unique_ptr<Playback> makeBareStreamPipeline(const std::string& item, const std::string& device,
                                                 Outcome outcome)
{
    return std::make_unique<BareStreamPipeline>(item, device, std::move(outcome));
}
