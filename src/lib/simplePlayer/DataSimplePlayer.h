#ifndef DATA_SIMPLE_PLAYER_H
#define DATA_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

#include <QtCore/QByteArray>

class DataSimplePlayerImpl;

/// Plays encoded audio (a whole sound file, for instance) from memory. It cannot loop.
///
/// A stop and a start play the whole item again, also after its end; no second outcome is reported.
/// Should GStreamer ask for data past the end, the memory is given back at once and that player has
/// nothing to play any more; a source whose size is known, as here, does not ask.
///
/// Should GStreamer refuse a piece of the data, as it may while playback is being stopped,
/// playbackErrorReported() is emitted from one of GStreamer's threads, with the reason "Failed to
/// push buffer" and beside the one outcome that every player reports: connect with a receiver
/// object, so that Qt delivers it through the receiver's event loop. A function connected without
/// a receiver would run on GStreamer's thread, where stopPlayback() or deleting the player can wait
/// for itself for ever.
///
/// A player may be destroyed in any state; from then on it emits nothing.
class KOVA_SIMPLEPLAYER_EXPORT DataSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param data    the encoded audio. The array is shared, not copied: if the caller still has
    ///                its own reference when playback takes the first bytes, all bytes are copied
    ///                then, once in the player's life; a caller who has dropped its array by then
    ///                saves that copy. The caller may change or drop its array at any time. An
    ///                array made with QByteArray::fromRawData() refers to the caller's bytes until
    ///                the first of them were taken, on one of GStreamer's threads: keep them
    ///                unchanged until the outcome; if the player may be started again after a stop,
    ///                as long as it lives. Empty data is logged now and fails when it is played.
    /// @param token   the identifier that the signals and the log carry
    /// @param device  the ALSA device to play on, "default" for instance; there is no default for
    ///                an empty name. It is cut off at a null character
    /// @param parent  the owner in the sense of QObject, or null
    DataSimplePlayer(const QByteArray& data, const QString& token, const QString& device,
                     QObject* parent = nullptr);
    ~DataSimplePlayer() override;

    bool startPlayback() override;
    bool pausePlayback() override;
    bool stopPlayback() override;

private:
    DataSimplePlayerImpl* engine; ///< a QObject child: it dies with this object, never before
};

#endif
