// libcanberra, which plays the sounds of desktops: WAV and Ogg.
#include "Contender.h"
#include "PlainLoop.h"

#include <canberra.h>

#include <cstdio>
#include <cstdlib>

static void failUnlessDone(int result)
{
    if (result != CA_SUCCESS) {
        std::fprintf(stderr, "libcanberra: %s\n", ca_strerror(result));
        std::exit(1);
    }
}

static ca_context* makeContext(const char* device)
{
    ca_context* context = nullptr;
    failUnlessDone(ca_context_create(&context));
    failUnlessDone(ca_context_set_driver(context, "alsa"));
    failUnlessDone(ca_context_change_device(context, device));
    failUnlessDone(ca_context_open(context));
    return context;
}

namespace {

class CanberraPlayback : public Playback
{
public:
    CanberraPlayback(std::string itemPath, const std::string& device, Outcome outcomeReceiver)
        : item(std::move(itemPath)), outcome(std::move(outcomeReceiver)),
          context(makeContext(device.c_str()))
    {
    }

    ~CanberraPlayback() override { ca_context_destroy(context); }

    void start() override
    {
        ca_proplist* properties = nullptr;
        ca_proplist_create(&properties);
        ca_proplist_sets(properties, CA_PROP_MEDIA_FILENAME, item.c_str());
        failUnlessDone(ca_context_play_full(context, 0, properties, reportEnd, this));
        ca_proplist_destroy(properties);
    }

private:
    /// Called on the thread that plays.
    static void reportEnd(ca_context* /*context*/, uint32_t /*id*/, int result, void* self)
    {
        auto* const me = static_cast<CanberraPlayback*>(self);
        const bool ended = result == CA_SUCCESS;
        me->loop.post([me, ended] { me->outcome(ended); });
    }

    const std::string item;
    const Outcome outcome;
    const LoopPost loop;
    ca_context* const context;
};

} // namespace

void contender::begin(int& /*argc*/, char** /*argv*/)
{
    // Never destroyed: the last context unloads code while a thread that has just played may still
    // be running it.
    makeContext("default");
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<CanberraPlayback>(item, device, std::move(outcome));
}
