// Runs a program on a machine without sound: a FakePlayer replaces the real player.
//
//     stand-in ITEM [DEVICE]       plays the item, and stops it when Return is pressed
//     stand-in                     does the same without sound
//
// The rest of the program uses the interface SimplePlayer only. A FakePlayer never ends by itself
// and never fails, so that only the stop leads to an outcome.
#include "play.h"

#include <QtCore/QSocketNotifier>
#include <memory>
#include <simplePlayer/UriSimplePlayer.h>
#include <unistd.h>

static std::unique_ptr<SimplePlayer> makePlayer(const QStringList& arguments)
{
    if (arguments.size() < 2) {
        return std::make_unique<FakePlayer>("silence");
    }
    return std::make_unique<UriSimplePlayer>(arguments[1], "the item",
                                             arguments.value(2, "default"));
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const std::unique_ptr<SimplePlayer> player = makePlayer(application.arguments());
    QSocketNotifier typed(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&typed, &QSocketNotifier::activated, player.get(), [&] {
        typed.setEnabled(false);
        player->stopPlayback();
    });
    return play(*player);
}
