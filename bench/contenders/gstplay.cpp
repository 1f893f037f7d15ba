// GStreamer's own player library: a playbin that is controlled from its own thread.
#include "Contender.h"

#include <gst/play/play.h>

namespace {

class GstPlayPlayback : public Playback
{
public:
    GstPlayPlayback(const std::string& item, const std::string& device, Outcome outcomeReceiver)
        : outcome(std::move(outcomeReceiver)), player(gst_play_new(nullptr)),
          bus(gst_play_get_message_bus(player))
    {
        GstElement* sink = gst_element_factory_make("alsasink", nullptr);
        g_object_set(sink, "device", device.c_str(), nullptr);
        GstElement* playbin = gst_play_get_pipeline(player);
        g_object_set(playbin, "audio-sink", sink, nullptr);
        gst_object_unref(playbin);
        gst_play_set_video_track_enabled(player, FALSE);
        gst_play_set_subtitle_track_enabled(player, FALSE);
        gst_bus_add_watch(bus, watchBus, this);

        gchar* uri = gst_filename_to_uri(item.c_str(), nullptr);
        gst_play_set_uri(player, uri);
        g_free(uri);
    }

    ~GstPlayPlayback() override
    {
        gst_bus_remove_watch(bus);
        // Queued messages refer to the player.
        gst_bus_set_flushing(bus, TRUE);
        gst_object_unref(bus);
        gst_object_unref(player);
    }

    void start() override { gst_play_play(player); }

private:
    static gboolean watchBus(GstBus* /*bus*/, GstMessage* message, void* self)
    {
        GstPlayMessage type = GST_PLAY_MESSAGE_URI_LOADED;
        gst_play_message_parse_type(message, &type);
        if (type == GST_PLAY_MESSAGE_END_OF_STREAM || type == GST_PLAY_MESSAGE_ERROR) {
            static_cast<GstPlayPlayback*>(self)->outcome(type == GST_PLAY_MESSAGE_END_OF_STREAM);
        }
        return TRUE;
    }

    const Outcome outcome;
    GstPlay* const player;
    GstBus* const bus;
};

} // namespace

void contender::begin(int& argc, char** argv)
{
    gst_init(&argc, &argv);
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<GstPlayPlayback>(item, device, std::move(outcome));
}
