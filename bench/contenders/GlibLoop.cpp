// The event loop of the contenders that use GLib's main loop without Qt.
#include "Contender.h"

#include <glib.h>

static GMainLoop* mainLoop()
{
    static GMainLoop* const only = g_main_loop_new(nullptr, FALSE);
    return only;
}

void contender::runLoop()
{
    g_main_loop_run(mainLoop());
}

void contender::quitLoop()
{
    g_main_loop_quit(mainLoop());
}
