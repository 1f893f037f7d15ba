#ifndef STREAM_SIMPLE_PLAYER_H
#define STREAM_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

class StreamSimplePlayerImpl;

/// Plays encoded audio that another process writes into a named pipe (FIFO) during playback. It
/// cannot loop.
///
/// The constructor creates the FIFO if it does not exist, and opens it for reading. Start playback
/// before anything is written: bytes that arrive before the start close the pipe permanently. The
/// stream ends when the writer closes its end or terminates; everything that was written before is
/// played. The player never reopens the pipe, so that it plays nothing more after a stop or an end.
///
/// Use a new path for each player, or terminate the writer before the next player opens the same
/// path. A writer that is still blocked when its player is destroyed writes the rest of its item
/// into the next reader of the FIFO.
///
/// A writer that is faster than the device blocks. It also blocks while the player is paused, past
/// the end of a file whose header states its length, and after an error; stopping or destroying the
/// player unblocks it. A writer must not be slower than the device: the sink takes 0.4 s of sound
/// at once when playback starts, replaces missing sound by silence, and skips sound that is late. A
/// live source writes its first half second at once and stays ahead by that much.
///
/// Containers and compressed formats (WAV, Ogg, MP3, FLAC and others) need no caps, GStreamer's
/// description of a media type. For raw samples use caps that accept blocks of any size:
/// "audio/x-unaligned-raw,format=S16LE,rate=16000,channels=1,layout=interleaved". Raw samples carry
/// no timestamps. Therefore playbackEnded() is emitted when the last sample is in the buffers of
/// the sink and the card (0.2 s each, or more if the card's buffer is larger), and stopping or
/// destroying the player then discards this sound. To hear it, let the writer append the same
/// amount of silence, or begin with a WAV header, which need not state the length.
class KOVA_SIMPLEPLAYER_EXPORT StreamSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param pipeName  path of the FIFO. It is created with mode 0600; an existing FIFO is used as
    ///                  it is. If there is another file at the path, or no FIFO can be created,
    ///                  this is logged now. startPlayback() may then succeed, but nothing is
    ///                  played, and the only outcome is that of stopPlayback().
    /// @param caps      the media type of the stream in the syntax of gst_caps_from_string(); empty
    ///                  to detect it. Text that is no valid description counts as empty. Caps that
    ///                  allow several formats, or do not match the stream, lead to
    ///                  playbackErrorReported(). Caps end at their first null character
    /// @param token     the identifier in signals and log lines
    /// @param device    the ALSA device, for example "default". An empty name is not replaced by a
    ///                  default. The name ends at its first null character
    /// @param parent    the QObject parent, or null
    StreamSimplePlayer(const QString& pipeName, const QString& caps, const QString& token,
                       const QString& device, QObject* parent = nullptr);
    ~StreamSimplePlayer() override;

    bool startPlayback() override;
    bool pausePlayback() override;
    bool stopPlayback() override;

private:
    StreamSimplePlayerImpl* engine; ///< a QObject child, destroyed with this object
};

#endif
