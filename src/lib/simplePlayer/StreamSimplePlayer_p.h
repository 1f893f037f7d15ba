#ifndef STREAM_SIMPLE_PLAYER_P_H
#define STREAM_SIMPLE_PLAYER_P_H

#include "simplePlayer/SimplePlayerInterface_p.h"

class KovaNamedPipe;
class StreamSimplePlayer;

/// The engine that plays the content of a named pipe:
/// appsrc → identity → decodebin ⇢ queue → audioconvert → audioresample → alsasink.
///
/// The reader reads one block per activation of the pipe's notifier and pushes it into the appsrc,
/// on the client's thread. The appsrc disables and enables the notifier through
/// on_receiveNewData(), so that a slow device blocks the writer. The reader never reopens a closed
/// pipe.
class StreamSimplePlayerImpl : public SimplePlayerImpl
{
    Q_OBJECT

public:
    /// @param pipePath  path of the FIFO, which is created and opened now
    /// @param capsText  caps of the stream, or empty
    StreamSimplePlayerImpl(const QString& pipePath, const QString& capsText,
                           const QString& itemToken, const QString& outputDevice,
                           StreamSimplePlayer* frontObject);
    ~StreamSimplePlayerImpl() override;

    bool initPipeline(GstElement* bin) override;

    /// Stops like the base class, then closes the pipe. @return the result of the base class
    bool stopPlayback() override;

    /// Handlers of "need-data" and "enough-data": enable and disable reading. They run on the
    /// streaming thread of the appsrc, or inside the reader's own push on the client's thread.
    static void staticStartFeed(GstElement* source, guint length, StreamSimplePlayerImpl* self);
    static void staticStopFeed(GstElement* source, StreamSimplePlayerImpl* self);

    /// Handler of "pad-added". Runs on a GStreamer streaming thread, as does newPadCallback().
    static void staticNewPadCallback(GstElement* element, GstPad* pad, void* self);
    /// Links a decoded audio pad to the output chain.
    void newPadCallback(GstPad* pad);

    /// Creates and opens the pipe and enables its notifier. Called once, by the constructor.
    void initReadPipe();
    /// Closes and discards the pipe if there is one. Safe inside the slot of its notifier.
    void closeReadPipe();

private Q_SLOTS:
    /// Reads one block and pushes it, or ends the stream if nothing could be read.
    void on_readPipeNotifier_activated(int sock);
    /// Enables or disables reading. The feed handlers call it by name.
    void on_receiveNewData(bool enable);

protected:
    StreamSimplePlayer* streamPlayer; ///< the same object as `player`; not owned
    // Owned by the pipeline once they are added to it. Written before the pipeline leaves the NULL
    // state, so that streaming threads may read them.
    GstElement* appsrc = nullptr;
    GstElement* decodebin = nullptr;
    GstElement* queue = nullptr;
    GstElement* sink = nullptr;
    QString caps;
    QString pipeName;
    KovaNamedPipe* pipe = nullptr; ///< a QObject child; null when none is open

private:
    bool makeSource();
    bool pushBlock(const char* block, int size);
    void endStream();
};

#endif
