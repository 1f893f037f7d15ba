// Plays a file or a web address.
//
//     play-uri ITEM [DEVICE]
//
// The player takes a path, which may count from the current folder, or an http:// or https://
// address. It is the only kind of player that can begin again at its end: set player.loop for that.
#include "play.h"

#include <simplePlayer/UriSimplePlayer.h>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        qFatal("usage: play-uri ITEM [DEVICE]");
    }
    UriSimplePlayer player(arguments[1], "the item", arguments.value(2, "default"));
    return play(player);
}
