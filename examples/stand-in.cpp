// Lets a program run where there is no sound: a FakePlayer stands in for the real one.
//
//     stand-in ITEM [DEVICE]       plays the item, and stops it at the end of the line typed
//     stand-in                     does the same without a sound
//
// The program's own code knows SimplePlayer alone. A FakePlayer never ends by itself and never
// fails, so only the stop leads to an outcome.
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
