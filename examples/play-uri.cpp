// Plays a file or a web address.
//
//     play-uri ITEM [DEVICE]
//
// An item is an absolute or relative path, or an http:// or https:// address. This is the only kind
// of player that can loop: set player.loop.
#include "play.h"

#include <simplePlayer/UriSimplePlayer.h>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        return reportUsage("play-uri ITEM [DEVICE]");
    }
    UriSimplePlayer player(arguments[1], "the item", arguments.value(2, "default"));
    return play(player);
}
