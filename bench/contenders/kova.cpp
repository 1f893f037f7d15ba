// This library.
#include "KovaLog.h"
#include "KovaPlayback.h"

#include <QtCore/QCoreApplication>

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    setUpLog();
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool loop, Outcome outcome)
{
    return makeKovaUriPlayback(item, device, loop, outcome);
}
