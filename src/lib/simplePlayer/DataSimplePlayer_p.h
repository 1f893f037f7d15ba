#ifndef DATA_SIMPLE_PLAYER_P_H
#define DATA_SIMPLE_PLAYER_P_H

#include "simplePlayer/SimplePlayerInterface_p.h"

#include <QtCore/QByteArray>

#include <atomic>

class DataSimplePlayer;

/// The engine that plays memory:
/// appsrc → decodebin ⇢ queue → audioconvert → audioresample → alsasink.
///
/// The appsrc pulls the bytes, in any order, with the two callbacks "need-data" and "seek-data",
/// which run on its streaming thread. They own `data` and `offset` while the pipeline is above
/// NULL; the client's thread touches both only when it is in NULL.
class DataSimplePlayerImpl : public SimplePlayerImpl
{
    Q_OBJECT

public:
    /// @param bytes  the encoded audio; shared, not copied
    DataSimplePlayerImpl(const QByteArray& bytes, const QString& itemToken,
                         const QString& outputDevice, DataSimplePlayer* frontObject);
    ~DataSimplePlayerImpl() override;

    bool initPipeline(GstElement* bin) override;

    /// Handler of "pad-added". Runs on a GStreamer streaming thread, as do all functions below.
    static void staticNewPadCallback(GstElement* element, GstPad* pad, void* data);
    /// Links a decoded audio pad to the output chain.
    void newPadCallback(GstPad* pad);

    /// Handler of "need-data".
    static void staticFeedDataCallback(GstElement* appsrc, guint length,
                                       DataSimplePlayerImpl* self);
    /// Pushes the next `length` bytes, or what is left of them, or ends the stream.
    void feedDataCallback(guint length);

    /// Handler of "seek-data".
    static gboolean staticSeekDataCallback(GstElement* appsrc, quint64 pos,
                                           DataSimplePlayerImpl* self);
    /// Moves the read position, also past the end. @return TRUE
    gboolean seekDataCallback(quint64 pos);

protected:
    DataSimplePlayer* dataPlayer; ///< the same object as `player`; not owned
    // Owned by the pipeline once it holds them; written before it leaves the NULL state, so that
    // streaming threads may read them.
    GstElement* appsrc = nullptr;
    GstElement* decodebin = nullptr;
    GstElement* queue = nullptr;
    GstElement* sink = nullptr;
    QByteArray data;    ///< empty for good once the end of the stream was sent
    quint64 offset = 0; ///< where the next chunk begins; never set back by a new start

private:
    void endStream();
    GstBuffer* makeBuffer(guint length);

    bool detached = false;            ///< whether `data` shares its bytes with the chunks alone
    std::atomic<bool> closing{false}; ///< set when destruction begins: no signal from then on
};

#endif
