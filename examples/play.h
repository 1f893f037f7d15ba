// The common part of the examples: starts a player of any kind, prints its outcome, and ends the
// program.
#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>

/// Prints what the arguments must be. @return the status to exit with
inline int reportUsage(const char* usage)
{
    QTextStream(stderr) << "usage: " << usage << '\n';
    return 64; // EX_USAGE of sysexits.h
}

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
        // GStreamer's reason may follow from the event loop. If it does not, the stop produces an
        // outcome.
        QTimer::singleShot(1000, &player, &SimplePlayer::stopPlayback);
    }
    return QCoreApplication::exec();
}
