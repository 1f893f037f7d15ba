#ifndef DATA_SIMPLE_PLAYER_H
#define DATA_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

#include <QtCore/QByteArray>

class DataSimplePlayerImpl;

/// Plays encoded audio (a whole sound file, for instance) from memory. It cannot loop.
///
/// The item is played through at most once: when its end was sent the memory is given back. Should
/// GStreamer refuse a piece of the data, playbackErrorReported() is emitted from one of GStreamer's
/// threads, with the reason "Failed to push buffer" and beside the one outcome that every player
/// reports: connect with a receiver object, so that Qt delivers it through the receiver's event
/// loop. A function connected without a receiver would run on GStreamer's thread, where calling
/// stopPlayback() can wait for itself for ever.
class KOVA_SIMPLEPLAYER_EXPORT DataSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param data    the encoded audio. The array is shared, not copied: as long as the caller
    ///                keeps its own reference, the bytes are copied once, when playback takes the
    ///                first of them; a caller who drops its array saves that copy. The caller may
    ///                change or drop its array at any time. An array made with
    ///                QByteArray::fromRawData() refers to the caller's bytes until the first of
    ///                them was taken: keep them until the outcome. Empty data is logged now and
    ///                fails when it is played.
    /// @param token   the identifier that the signals and the log carry
    /// @param device  the ALSA device to play on, "default" for instance; there is no default for
    ///                an empty name
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
