// Plays a sound file that is in memory; here it is read from standard input.
//
//     play-data [DEVICE] <FILE
//
// The bytes are not copied when the player is the only one that holds them. A temporary, as here,
// leaves it alone with them; a QByteArray that the program keeps as well is copied once.
#include "play.h"

#include <QtCore/QFile>
#include <simplePlayer/DataSimplePlayer.h>

static QByteArray readInput()
{
    QFile input;
    input.open(stdin, QIODevice::ReadOnly);
    return input.readAll();
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    DataSimplePlayer player(readInput(), "the data", application.arguments().value(1, "default"));
    return play(player);
}
