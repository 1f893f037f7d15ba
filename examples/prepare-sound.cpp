// Plays a file or a web address without the delay of a process's first playback.
//
//     prepare-sound ITEM [DEVICE [SILENCE]]
//
// SILENCE is a file with a moment of silence in the format of the item. It is not needed for WAV.
//
//     sox -n -r 48000 -c 2 silence.ogg trim 0 0.01
//     prepare-sound chime.ogg default silence.ogg
#include "prepare-sound.h"
#include "play.h"

#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <simplePlayer/UriSimplePlayer.h>

static QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s cannot be read", qPrintable(path));
    }
    return file.readAll();
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        qFatal("usage: prepare-sound ITEM [DEVICE [SILENCE]]");
    }
    // A program does this while it starts up. An application in its event loop need not wait here.
    QEventLoop preparing;
    DataSimplePlayer* silence =
        prepareSound(arguments.size() > 3 ? readFile(arguments[3]) : silentWav());
    QObject::connect(silence, &QObject::destroyed, &preparing, &QEventLoop::quit);
    preparing.exec();

    UriSimplePlayer player(arguments[1], "the item", arguments.value(2, "default"));
    return play(player);
}
