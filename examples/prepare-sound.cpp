// Plays a file or a web address without the delay of a process's first playback.
//
//     prepare-sound ITEM [DEVICE [SILENCE]]
//
// Each format has its own demuxer and decoder. The WAV file in this program prepares WAV items;
// SILENCE is a file that prepares another format:
//
//     sox -n -r 48000 -c 2 silence.ogg trim 0 0.001
//     prepare-sound chime.ogg default silence.ogg
#include "prepare-sound.h"
#include "play.h"

#include <QtCore/QEventLoop>
#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

static SimplePlayer* makeSilence(const QStringList& arguments)
{
    if (arguments.size() < 4) {
        return new DataSimplePlayer(silentWav(), "silence", "null");
    }
    return new UriSimplePlayer(arguments[3], "silence", "null");
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        return reportUsage("prepare-sound ITEM [DEVICE [SILENCE]]");
    }
    // A real program continues with its own start instead of waiting here.
    QEventLoop preparing;
    SimplePlayer* silence = makeSilence(arguments);
    QObject::connect(silence, &QObject::destroyed, &preparing, &QEventLoop::quit);
    prepareSound(silence);
    preparing.exec();

    UriSimplePlayer player(arguments[1], "the item", arguments.value(2, "default"));
    return play(player);
}
