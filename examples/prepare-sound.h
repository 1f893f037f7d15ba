// Takes the delay off the first sound of a process. The first playback loads GStreamer's plug-ins
// and reads ALSA's configuration; prepareSound() has a moment of silence do that in advance.
#include <simplePlayer/DataSimplePlayer.h>

#include <QtCore/QByteArray>

/// Returns a WAV file of 10 ms of silence: 48 kHz, two channels, 16 bits.
inline QByteArray silentWav()
{
    const char header[] = "RIFF\xA4\x07\0\0WAVE"
                          "fmt \x10\0\0\0\x01\0\x02\0\x80\xBB\0\0\0\xEE\x02\0\x04\0\x10\0"
                          "data\x80\x07\0\0";
    return QByteArray(header, sizeof header - 1) + QByteArray(0x780, '\0');
}

/// Plays silence on ALSA's device "null", which needs no sound card. Requires an event loop.
/// @param silence  a short sound file in the format of the items to come: each format has a demuxer
///                 and a decoder of its own
/// @return the player, which deletes itself when everything is prepared
inline DataSimplePlayer* prepareSound(const QByteArray& silence, QObject* parent = nullptr)
{
    auto* player = new DataSimplePlayer(silence, "silence", "null", parent);
    QObject::connect(player, &SimplePlayer::playbackEnded, player, &QObject::deleteLater);
    QObject::connect(player, &SimplePlayer::playbackErrorReported, player, &QObject::deleteLater);
    if (!player->startPlayback()) {
        player->deleteLater();
    }
    return player;
}
