#ifndef STREAM_SIMPLE_PLAYER_H
#define STREAM_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

class StreamSimplePlayerImpl;

/// Plays encoded audio that another process writes into a named pipe while it plays. It cannot
/// loop.
///
/// The pipe is made, if it is not there, and opened when the player is constructed. Start the
/// playback before anything is written: bytes that arrive before the start close the pipe for
/// good. The end of the stream is reached when the writer closes its end; the player never opens
/// the pipe again, so after a stop or an end it plays nothing more. A paused player takes a few
/// blocks more and then lets the writer wait.
///
/// Containers and compressed formats (WAV, Ogg, MP3, FLAC …) need no caps. For raw samples give
/// caps that take blocks of any size, whatever the size of a frame:
/// "audio/x-unaligned-raw,format=S16LE,rate=16000,channels=1,layout=interleaved". Raw samples carry
/// no times, so that the last fifth of a second or so may be lost at their end: have the writer
/// send a WAV header first, or silence last.
class KOVA_SIMPLEPLAYER_EXPORT StreamSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param pipeName  path of the FIFO. It is made with mode 0600; one that exists is used as it
    ///                  is. Anything else at the path, or a path where none can be made, is logged
    ///                  now; the player then never plays and reports only what stopPlayback() says.
    /// @param caps      what the stream is, as gst_caps_from_string() takes it; empty to find out.
    ///                  A text that is no such description counts as empty.
    /// @param token     the identifier that the signals and the log carry
    /// @param device    the ALSA device to play on, "default" for instance; there is no default for
    ///                  an empty name
    /// @param parent    the owner in the sense of QObject, or null
    StreamSimplePlayer(const QString& pipeName, const QString& caps, const QString& token,
                       const QString& device, QObject* parent = nullptr);
    ~StreamSimplePlayer() override;

    bool startPlayback() override;
    bool pausePlayback() override;
    bool stopPlayback() override;

private:
    StreamSimplePlayerImpl* engine; ///< a QObject child: it dies with this object, never before
};

#endif
