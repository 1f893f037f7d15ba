#ifndef DATA_SIMPLE_PLAYER_P_H
#define DATA_SIMPLE_PLAYER_P_H

#include "simplePlayer/SimplePlayerInterface_p.h"

#include <QtCore/QByteArray>

#include <atomic>

class DataSimplePlayer;

/// The engine that plays memory:
/// appsrc → decodebin ⇢ queue → audioconvert → audioresample → alsasink.
///
/// The appsrc pulls the bytes, in any order, through the callbacks "need-data" and "seek-data",
/// which run on its streaming thread. While the pipeline is above NULL, only they use `data` and
/// `offset`; the client's thread uses both only in the NULL state.
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
    /// Pushes the next `length` bytes, or fewer at the end of the array, or ends the stream.
    void feedDataCallback(guint length);

    /// Handler of "seek-data".
    static gboolean staticSeekDataCallback(GstElement* appsrc, quint64 pos,
                                           DataSimplePlayerImpl* self);
    /// Moves the read position, also past the end. @return TRUE
    gboolean seekDataCallback(quint64 pos);

protected:
    DataSimplePlayer* dataPlayer; ///< the same object as `player`; not owned
    // Owned by the pipeline once they are added to it. Written before the pipeline leaves the NULL
    // state, so that streaming threads may read them.
    GstElement* appsrc = nullptr;
    GstElement* decodebin = nullptr;
    GstElement* queue = nullptr;
    GstElement* sink = nullptr;
    QByteArray data;    ///< empty after the end of the stream was sent, and never filled again
    quint64 offset = 0; ///< position of the next chunk; a new start does not reset it

private:
    void endStream();
    GstBuffer* makeBuffer(guint length);

    bool detached = false;            ///< whether only the chunks share the bytes of `data`
    std::atomic<bool> closing{false}; ///< set when destruction begins; suppresses the signal
};

#endif
