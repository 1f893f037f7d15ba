// This library, reading a named pipe.
#include "KovaLog.h"
#include "KovaPlayback.h"

#include <simplePlayer/StreamSimplePlayer.h>

#include <QtCore/QCoreApplication>

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    setUpLog();
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<KovaPlayback>(
        std::make_unique<StreamSimplePlayer>(QString::fromStdString(item), QString(),
                                             QStringLiteral("token"),
                                             QString::fromStdString(device)),
        false, outcome);
}
