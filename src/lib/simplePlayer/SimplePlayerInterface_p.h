#ifndef SIMPLE_PLAYER_INTERFACE_P_H
#define SIMPLE_PLAYER_INTERFACE_P_H

#include "simplePlayer/SimplePlayerInterface.h"

#include <QtCore/QObject>
#include <QtCore/QString>

#include <gst/gst.h>

#include <string>

/// The engine behind a front object. It owns one GStreamer pipeline, controls its state, watches
/// its bus, and turns every way in which playback finishes into exactly one signal of the front
/// object. Each kind of source has a variant that decides what the pipeline contains.
///
/// All functions run on the thread that owns the front object unless their comment names another;
/// nothing is locked. The engine is a QObject child of the front object and is destroyed inside the
/// front object's QObject destructor, after the derived parts of `player`. Only the bus watch and
/// the reporting slot use `player`, and both run from the event loop.
///
/// The order of members, virtual functions, signals and slots is binary interface.
class SimplePlayerImpl : public QObject
{
    Q_OBJECT

public:
    ~SimplePlayerImpl() override;

    /// Builds the pipeline if there is none, then requests PLAYING.
    /// @return false if building or the state change failed
    virtual bool startPlayback();
    /// Requests PAUSED. @return false if there is no usable pipeline or it refused
    virtual bool pausePlayback();
    /// Sets the pipeline to NULL and keeps it. Reports the stop, or the reason why it failed.
    virtual bool stopPlayback();

    /// Creates the variant's elements, adds them to `bin` and links them. A failure is logged and
    /// undoes nothing: elements in the pipeline stay until the engine releases the pipeline, and
    /// elements that were not added yet are abandoned.
    /// @param bin  the new pipeline, which the caller keeps in `pipeline`
    /// @return whether the pipeline is complete
    virtual bool initPipeline(GstElement* bin) = 0;

    /// Starts the item again at its end. The base refuses; a variant that can loop overrides it.
    virtual bool restartPlayback();

    /// Creates the pipeline, installs the bus watch and calls initPipeline().
    bool setupGstPipeline();
    /// Sets the pipeline to NULL, removes the watch and drops the pipeline. Does nothing without a
    /// pipeline. Safe to call from inside the bus watch.
    void releaseGstPipeline();
    /// Whether there is a usable pipeline: one that was built completely and not released since.
    bool pipelineInitialized();

    /// The GstBusFunc of the pipeline's bus: forwards to busWatch() of the engine in `data`.
    static gboolean staticBusWatch(GstBus* bus, GstMessage* message, void* data);
    /// Handles one bus message. @return true always: only releaseGstPipeline() removes the watch
    bool busWatch(GstBus* bus, GstMessage* message);

    /// Queues the report of a normal end if `error` is empty, otherwise of a failure. The caller
    /// stops or releases the pipeline before it reports, if that is necessary.
    void reportPlaybackEnded(const QString& error);
    /// Queues the report of a stop that the client requested.
    void reportPlaybackStopped();

Q_SIGNALS:
    /// Emitted by the two report functions only. The connection to on_sendPlaybackEnded() is
    /// queued.
    void sendPlaybackEnded(bool stop, const QString& msg);

private Q_SLOTS:
    /// Emits the outcome of this engine on the front object, once; later reports are dropped.
    /// A slot of the client may destroy the front object, and thereby this engine.
    void on_sendPlaybackEnded(bool stop, const QString& error);

protected:
    /// @param itemToken     the client's identifier of the item
    /// @param outputDevice  the ALSA device to play on
    /// @param frontObject   becomes `player` and the QObject parent; must not be null
    SimplePlayerImpl(const QString& itemToken, const QString& outputDevice,
                     SimplePlayer* frontObject);

    SimplePlayer* player;           ///< the front object; not owned
    GstElement* pipeline = nullptr; ///< one owned reference, or null
    QString token;                  ///< never changes; streaming threads read it too
    QString device;
    bool initialized = false; ///< result of the last initPipeline(); kept when the pipeline goes
    bool endReported = false; ///< used by on_sendPlaybackEnded() only; never cleared

private:
    void handleError(GstMessage* message);
    void handleStateChange(GstMessage* message);
    void handleEndOfStream();
};

/// Logs one TRACE line about a state-change message.
void printGstStateChangeMessage(GstMessage* message, GstState oldState, GstState newState,
                                GstState pendingState);

/// Requests a Graphviz picture of a pipeline. GStreamer writes it into the folder that the
/// environment variable GST_DEBUG_DUMP_DOT_DIR named when GStreamer was initialized. Without the
/// variable nothing happens.
///
/// @param pipeline  the pipeline to draw
/// @param prefix    start of the file name, after GStreamer's timestamp and a dash
/// @param name      follows the prefix directly
/// @param verbose   whether to draw every detail; appends "-verbose" to the name
void createDotPipelineDump(GstPipeline* pipeline, const std::string& prefix,
                           const std::string& name, bool verbose);

#endif
