#ifndef DATA_SIMPLE_PLAYER_H
#define DATA_SIMPLE_PLAYER_H

#include "simplePlayer/SimplePlayerInterface.h"

#include <QtCore/QByteArray>

class DataSimplePlayerImpl;

/// Plays encoded audio from memory, for example a whole sound file. It cannot loop.
///
/// A start after a stop plays the whole item again, also after its end, but reports no second
/// outcome. If GStreamer requests data past the end, the memory is released at once and the player
/// has nothing left to play. A source of known size, as used here, makes no such request.
///
/// If GStreamer refuses a piece of the data, which can happen while playback is being stopped, the
/// player emits playbackErrorReported() with the reason "Failed to push buffer" from a GStreamer
/// thread, in addition to its outcome. Connect signals with a receiver object, so that Qt delivers
/// them through the receiver's event loop. A function that is connected without a receiver runs on
/// the GStreamer thread, where stopPlayback() or deleting the player can deadlock.
///
/// A player may be destroyed in any state. Destruction emits nothing.
class KOVA_SIMPLEPLAYER_EXPORT DataSimplePlayer : public SimplePlayer
{
    Q_OBJECT

public:
    /// @param data    the encoded audio. The array is shared, not copied. If the caller still holds
    ///                a reference when playback takes the first bytes, the player copies the array
    ///                once. The caller may change or drop its array at any time. An array from
    ///                QByteArray::fromRawData() refers to the caller's bytes until playback, on a
    ///                GStreamer thread, takes the first of them: keep these bytes unchanged until
    ///                the outcome, or until the player is destroyed if it is started again after a
    ///                stop. Empty data is logged now and fails when it is played.
    /// @param token   the identifier in signals and log lines
    /// @param device  the ALSA device, for example "default". An empty name is not replaced by a
    ///                default. The name ends at its first null character
    /// @param parent  the QObject parent, or null
    DataSimplePlayer(const QByteArray& data, const QString& token, const QString& device,
                     QObject* parent = nullptr);
    ~DataSimplePlayer() override;

    bool startPlayback() override;
    bool pausePlayback() override;
    bool stopPlayback() override;

private:
    DataSimplePlayerImpl* engine; ///< a QObject child, destroyed with this object
};

#endif
