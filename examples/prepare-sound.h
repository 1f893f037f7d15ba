// Takes the delay off the first sound of a process. The first playback loads GStreamer's plug-ins
// and reads ALSA's configuration; a moment of silence on ALSA's device "null" does that in advance.
#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QByteArray>

/// Returns a WAV file of 1 ms of silence: 48 kHz, two channels, 16 bits. While "null" plays, a
/// thread of GStreamer does not wait, so silence should be short.
inline QByteArray silentWav()
{
    const char header[] = "RIFF\xE4\0\0\0WAVE"
                          "fmt \x10\0\0\0\x01\0\x02\0\x80\xBB\0\0\0\xEE\x02\0\x04\0\x10\0"
                          "data\xC0\0\0\0";
    return QByteArray(header, sizeof header - 1) + QByteArray(0xC0, '\0');
}

/// Plays silence. Requires an event loop.
/// @param silence  a player for the device "null". It deletes itself when everything is loaded
inline void prepareSound(SimplePlayer* silence)
{
    QObject::connect(silence, &SimplePlayer::playbackEnded, silence, &QObject::deleteLater);
    QObject::connect(silence, &SimplePlayer::playbackErrorReported, silence, &QObject::deleteLater);
    if (!silence->startPlayback()) {
        silence->deleteLater();
    }
}
