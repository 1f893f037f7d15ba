// This library in a process that has prepared its first sound.
#include "KovaLog.h"
#include "KovaPlayback.h"

#include <prepare-sound.h>
#include <simplePlayer/DataSimplePlayer.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QFileInfo>

/// Plays silence and waits until everything is loaded.
static void prepareAndWait(SimplePlayer* silence)
{
    QEventLoop preparing;
    QObject::connect(silence, &QObject::destroyed, &preparing, &QEventLoop::quit);
    prepareSound(silence);
    preparing.exec();
}

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    setUpLog();
    const QString silence = QStringLiteral("silence");
    const QString device = QStringLiteral("null");
    prepareAndWait(new DataSimplePlayer(silentWav(), silence, device));
    // The file beside the item is in the item's format, and prepares the player of files, too.
    const QFileInfo item(QCoreApplication::arguments().at(2));
    prepareAndWait(
        new UriSimplePlayer(item.dir().filePath("silence." + item.suffix()), silence, device));
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool loop, Outcome outcome)
{
    return makeKovaUriPlayback(item, device, loop, outcome);
}
