// Plays what another program writes into a named pipe until that program closes it.
//
//     mkfifo PIPE
//     play-stream PIPE [DEVICE] &
//     espeak-ng --stdout "The train is late." >PIPE
//
// The player creates a missing pipe, but a shell redirection that runs earlier would create a
// regular file. A writer must not begin before playback is started. This program prints a line on
// standard error when writers may begin.
#include "play.h"

#include <simplePlayer/StreamSimplePlayer.h>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        return reportUsage("play-stream PIPE [DEVICE]");
    }
    // Containers and compressed streams need no caps: GStreamer detects their type.
    StreamSimplePlayer player(arguments[1], QString(), "the stream", arguments.value(2, "default"));
    QTimer::singleShot(0, [] { QTextStream(stderr) << "write into the pipe now\n"; });
    return play(player);
}
