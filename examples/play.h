// What every example does with its player, whatever kind it is: start it, say the outcome, and end
// the program with it.
#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>

/// @return the status to exit with: 0 when the item was played to its end
inline int play(SimplePlayer& player)
{
    const auto finish = [](const QString& outcome, int status) {
        QTextStream(stdout) << outcome << '\n';
        QCoreApplication::exit(status);
    };
    QObject::connect(&player, &SimplePlayer::playbackEnded,
                     [=](const QString& token) { finish(token + " was played", 0); });
    QObject::connect(&player, &SimplePlayer::playbackErrorReported,
                     [=](const QString& token, const QString& reason) {
                         finish(token + " failed: " + reason, 1);
                     });
    QObject::connect(&player, &SimplePlayer::playbackStopped,
                     [=](const QString& token) { finish(token + " was stopped", 2); });

    if (!player.startPlayback()) {
        // GStreamer's reason is still to come; the stop makes sure of an outcome if none comes.
        QTimer::singleShot(1000, &player, &SimplePlayer::stopPlayback);
    }
    return QCoreApplication::exec();
}
