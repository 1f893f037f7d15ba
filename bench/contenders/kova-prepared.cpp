// This library in a process that has prepared its first sound.
#include "KovaLog.h"
#include "KovaPlayback.h"

#include <prepare-sound.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

/// Silence in the format of an item: a file beside the item, except for WAV.
static QByteArray silenceFor(const QFileInfo& item)
{
    if (item.suffix() == QLatin1String("wav")) {
        return silentWav();
    }
    QFile file(item.dir().filePath(QStringLiteral("silence.") + item.suffix()));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s cannot be read", qPrintable(file.fileName()));
    }
    return file.readAll();
}

void contender::begin(int& argc, char** argv)
{
    static QCoreApplication application(argc, argv);
    setUpLog();
    QEventLoop preparing;
    const QFileInfo item(QCoreApplication::arguments().at(2));
    QObject::connect(prepareSound(silenceFor(item)), &QObject::destroyed, &preparing,
                     &QEventLoop::quit);
    preparing.exec();
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& device,
                                             bool loop, Outcome outcome)
{
    return makeKovaUriPlayback(item, device, loop, outcome);
}
