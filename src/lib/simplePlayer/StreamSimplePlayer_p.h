#ifndef STREAM_SIMPLE_PLAYER_P_H
#define STREAM_SIMPLE_PLAYER_P_H

#include "simplePlayer/SimplePlayerInterface_p.h"

class KovaNamedPipe;
class StreamSimplePlayer;

/// The engine that plays what is written into a named pipe:
/// appsrc → identity → decodebin ⇢ queue → audioconvert → audioresample → alsasink.
///
/// The reader takes one block for each activation of the pipe's notifier and pushes it into the
/// appsrc, all on the client's thread. The appsrc switches the notifier off and on again through
/// on_receiveNewData(), so that a slow device makes the writer wait. The reader never reopens the
/// pipe: there is none from the moment that it is closed.
class StreamSimplePlayerImpl : public SimplePlayerImpl
{
    Q_OBJECT

public:
    /// @param pipePath  path of the FIFO, which is made and opened now
    /// @param capsText  description of the stream, or empty
    StreamSimplePlayerImpl(const QString& pipePath, const QString& capsText,
                           const QString& itemToken, const QString& outputDevice,
                           StreamSimplePlayer* frontObject);
    ~StreamSimplePlayerImpl() override;

    bool initPipeline(GstElement* bin) override;

    /// Stops like the base, then closes the pipe. @return what the base returned
    bool stopPlayback() override;

    /// Handlers of "need-data" and "enough-data": have reading switched on or off. Run on the
    /// appsrc's streaming thread, or inside the reader's own push on the client's thread.
    static void staticStartFeed(GstElement* source, guint length, StreamSimplePlayerImpl* self);
    static void staticStopFeed(GstElement* source, StreamSimplePlayerImpl* self);

    /// Handler of "pad-added". Runs on a GStreamer streaming thread, as does newPadCallback().
    static void staticNewPadCallback(GstElement* element, GstPad* pad, void* self);
    /// Links a decoded audio pad to the output chain.
    void newPadCallback(GstPad* pad);

    /// Makes and opens the pipe and enables its notifier. Called once, by the constructor.
    void initReadPipe();
    /// Closes and discards the pipe, if there is one. Safe inside the notifier's own slot.
    void closeReadPipe();

private Q_SLOTS:
    /// Reads one block and pushes it, or ends the stream when nothing could be read.
    void on_readPipeNotifier_activated(int sock);
    /// Switches reading on or off; called by name from the feed handlers.
    void on_receiveNewData(bool enable);

protected:
    StreamSimplePlayer* streamPlayer; ///< the same object as `player`; not owned
    // Owned by the pipeline once it holds them; written before it leaves the NULL state, so that
    // streaming threads may read them.
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
