#ifndef STREAM_SIMPLE_PLAYER_H
#define STREAM_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

class StreamSimplePlayerImpl;

/// Plays encoded audio that another process writes into a named pipe while it plays. It cannot
/// loop.
///
/// The pipe is made, if it is not there, and opened when the player is constructed. Start the
/// playback before anything is written: bytes that arrive before the start close the pipe for
/// good. The end of the stream is reached when the writer closes its end or dies; everything that
/// was written before is played. The player never opens the pipe again, so after a stop or an end
/// it plays nothing more.
///
/// A writer that is faster than the device waits, also while the player is paused, behind the end
/// of a file that tells its own length, and after an error: then until the player is stopped or
/// destroyed. A writer must not be slower: the sink takes 0.4 s of sound at once at the start,
/// replaces by silence what it does not get in time, and skips what comes too late. A live source
/// has to write its first half second at once and to stay ahead.
///
/// Containers and compressed formats (WAV, Ogg, MP3, FLAC …) need no caps. For raw samples give
/// caps that take blocks of any size, whatever the size of a frame:
/// "audio/x-unaligned-raw,format=S16LE,rate=16000,channels=1,layout=interleaved". Raw samples carry
/// no times: playbackEnded() comes when the last of them is in the buffers of the sink and of the
/// card, 0.2 s each or more if the card's is larger, and a stop or the player's destruction then
/// empties these. Have the writer send as much silence last, or a WAV header first, which need not
/// know the length.
class KOVA_SIMPLEPLAYER_EXPORT StreamSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param pipeName  path of the FIFO. It is made with mode 0600; one that exists is used as it
    ///                  is. Anything else at the path, or a path where none can be made, is logged
    ///                  now; the player then never plays and reports only what stopPlayback() says.
    /// @param caps      what the stream is, as gst_caps_from_string() takes it; empty to find out.
    ///                  A text that is no such description counts as empty. One that allows more
    ///                  than one format, or that is wrong, ends in playbackErrorReported().
    /// @param token     the identifier that the signals and the log carry
    /// @param device    the ALSA device to play on, "default" for instance; there is no default for
    ///                  an empty name. It is cut off at a null character, as are the caps
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
