// A pipeline written by hand, in a program that has nothing but GLib's main loop.
#include "BarePipeline.h"

static GMainLoop* mainLoop = nullptr;

void contender::begin(int& argc, char** argv)
{
    gst_init(&argc, &argv);
    mainLoop = g_main_loop_new(nullptr, FALSE);
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool loop, Outcome outcome)
{
    return makeBareUriPipeline(item, device, loop, std::move(outcome));
}

void contender::runLoop()
{
    g_main_loop_run(mainLoop);
}

void contender::quitLoop()
{
    g_main_loop_quit(mainLoop);
}
