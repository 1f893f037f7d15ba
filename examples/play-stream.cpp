// Plays what another program writes into a named pipe, until that program closes it.
//
//     mkfifo PIPE
//     play-stream PIPE [DEVICE] &
//     espeak-ng --stdout "The train is late." >PIPE
//
// The player makes a pipe that is missing, but a shell that is quicker makes a file. Nothing may be
// written before the playback is started, so a program tells its writers when to begin: this one
// says so on standard error.
#include "play.h"

#include <simplePlayer/StreamSimplePlayer.h>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        qFatal("usage: play-stream PIPE [DEVICE]");
    }
    // Containers and compressed streams need no caps: GStreamer finds out what they are.
    StreamSimplePlayer player(arguments[1], QString(), "the stream", arguments.value(2, "default"));
    QTimer::singleShot(0, [] { QTextStream(stderr) << "write into the pipe now\n"; });
    return play(player);
}
