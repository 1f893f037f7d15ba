// libVLC, with its sound output for ALSA.
#include "Contender.h"
#include "PlainLoop.h"

#include <vlc/vlc.h>

#include <array>
#include <cstdio>
#include <cstdlib>

static libvlc_instance_t* vlc = nullptr;

namespace {

class VlcPlayback : public Playback
{
public:
    VlcPlayback(const std::string& item, const std::string& device, Outcome outcomeReceiver)
        : outcome(std::move(outcomeReceiver))
    {
        libvlc_media_t* media = libvlc_media_new_path(vlc, item.c_str());
        player = libvlc_media_player_new_from_media(media);
        libvlc_media_release(media);
        // Sets the device of the existing output. With the name of a module the call has no effect.
        libvlc_audio_output_device_set(player, nullptr, device.c_str());
        libvlc_event_manager_t* events = libvlc_media_player_event_manager(player);
        libvlc_event_attach(events, libvlc_MediaPlayerEndReached, reportOutcome, this);
        libvlc_event_attach(events, libvlc_MediaPlayerEncounteredError, reportOutcome, this);
    }

    ~VlcPlayback() override
    {
        libvlc_media_player_stop(player);
        libvlc_media_player_release(player);
    }

    void start() override { libvlc_media_player_play(player); }

private:
    static void reportOutcome(const libvlc_event_t* event, void* self)
    {
        auto* const me = static_cast<VlcPlayback*>(self);
        const bool ended = event->type == libvlc_MediaPlayerEndReached;
        me->loop.post([me, ended] { me->outcome(ended); });
    }

    const Outcome outcome;
    const LoopPost loop;
    libvlc_media_player_t* player = nullptr;
};

} // namespace

void contender::begin(int& /*argc*/, char** /*argv*/)
{
    const std::array<const char*, 3> options = {"--aout=alsa", "--no-video", "--quiet"};
    vlc = libvlc_new(static_cast<int>(options.size()), options.data());
    if (!vlc) {
        std::fputs("libVLC cannot be initialized\n", stderr);
        std::exit(1);
    }
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<VlcPlayback>(item, device, std::move(outcome));
}
