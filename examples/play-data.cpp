// Plays a sound file from memory. This example reads it from standard input.
//
//     play-data [DEVICE] <FILE
//
// The bytes are not copied if the player holds the only reference to them, as with the temporary
// here. A QByteArray that the program keeps as well is copied once.
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
