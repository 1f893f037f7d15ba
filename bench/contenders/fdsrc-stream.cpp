// A pipeline written by hand in a Qt application, with GStreamer's own element reading a named
// pipe.
#include "BarePipeline.h"

#include <QtCore/QCoreApplication>

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    gst_init(&argc, &argv);
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool /*loop*/, Outcome outcome)
{
    return makeBareStreamPipeline(item, device, std::move(outcome));
}
