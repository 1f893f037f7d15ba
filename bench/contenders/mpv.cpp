// libmpv, without video and without the user's configuration.
#include "Contender.h"
#include "PlainLoop.h"

#include <mpv/client.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

class MpvPlayback : public Playback
{
public:
    MpvPlayback(std::string itemPath, const std::string& device, Outcome outcomeReceiver)
        : item(std::move(itemPath)), outcome(std::move(outcomeReceiver)), player(mpv_create())
    {
        const std::string sink = "alsa/" + device;
        const std::array<std::pair<const char*, const char*>, 5> options = {{
            {"config", "no"},
            {"vid", "no"},
            {"ao", "alsa"},
            {"audio-device", sink.c_str()},
            {"idle", "yes"},
        }};
        for (const auto& [name, value] : options) {
            mpv_set_option_string(player, name, value);
        }
        if (mpv_initialize(player) < 0) {
            std::fputs("libmpv cannot be initialized\n", stderr);
            std::exit(1);
        }
        mpv_set_wakeup_callback(player, wakeUp, this);
    }

    ~MpvPlayback() override { mpv_terminate_destroy(player); }

    void start() override
    {
        std::array<const char*, 3> command = {"loadfile", item.c_str(), nullptr};
        mpv_command(player, command.data());
    }

private:
    static void wakeUp(void* self)
    {
        auto* const me = static_cast<MpvPlayback*>(self);
        me->loop.post([me] { me->takeEvents(); });
    }

    void takeEvents()
    {
        for (;;) {
            const mpv_event* event = mpv_wait_event(player, 0);
            if (event->event_id == MPV_EVENT_NONE) {
                return;
            }
            if (event->event_id == MPV_EVENT_END_FILE) {
                const auto* end = static_cast<const mpv_event_end_file*>(event->data);
                outcome(end->reason == MPV_END_FILE_REASON_EOF);
            }
        }
    }

    const std::string item;
    const Outcome outcome;
    const LoopPost loop;
    mpv_handle* const player;
};

} // namespace

void contender::begin(int& /*argc*/, char** /*argv*/)
{
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<MpvPlayback>(item, device, std::move(outcome));
}
