// A pipeline written by hand in a GLib application.
#include "BarePipeline.h"

void contender::begin(int& argc, char** argv)
{
    gst_init(&argc, &argv);
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool loop, Outcome outcome)
{
    return makeBareUriPipeline(item, device, loop, std::move(outcome));
}
