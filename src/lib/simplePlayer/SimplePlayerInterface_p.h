#ifndef SIMPLE_PLAYER_INTERFACE_P_H
#define SIMPLE_PLAYER_INTERFACE_P_H

#include "simplePlayer/SimplePlayerInterface.h"

#include <QtCore/QObject>
#include <QtCore/QString>

#include <gst/gst.h>

#include <string>

/// The engine behind a front object: owns one GStreamer pipeline, drives its state, watches its
/// bus and turns whatever ends a playback into exactly one signal of the front object. What goes
/// into the pipeline is decided by the variants, one for each kind of source.
///
/// Everything runs on the thread that owns the front object unless a function says otherwise;
/// nothing is locked. The engine is a QObject child of the front object and dies inside the
/// front object's QObject destructor, when the derived parts of `player` are gone: `player` is
/// touched by the bus watch and the reporting slot only, both of which run from the event loop.
///
/// The order of members, virtual functions, signals and slots is binary interface.
class SimplePlayerImpl : public QObject
{
    Q_OBJECT

public:
    ~SimplePlayerImpl() override;

    /// Builds the pipeline when there is none, then requests PLAYING.
    /// @return false when building or the state change failed
    virtual bool startPlayback();
    /// Requests PAUSED. @return false when there is no live pipeline or it refused
    virtual bool pausePlayback();
    /// Sets the pipeline to NULL, keeps it, and reports the stop, or the reason why there was none.
    virtual bool stopPlayback();

    /// Makes the variant's elements, adds them to `bin` and links them. A failure is logged
    /// and undoes nothing: what was made stays until the engine releases the pipeline, and what
    /// was not yet added to it is abandoned.
    /// @param bin  the pipeline that was just made, also kept in `pipeline` by the caller
    /// @return whether the pipeline is complete
    virtual bool initPipeline(GstElement* bin) = 0;

    /// Begins the item again at its end. The base refuses; a variant that can loop overrides it.
    virtual bool restartPlayback();

    /// Makes the pipeline, installs the bus watch and calls initPipeline().
    bool setupGstPipeline();
    /// Sets the pipeline to NULL, removes the watch and drops the pipeline. Does nothing without
    /// one. Safe to call from inside the bus watch.
    void releaseGstPipeline();
    /// Whether a live pipeline exists: one that was built completely and not released since.
    bool pipelineInitialized();

    /// The GstBusFunc of the pipeline's bus: forwards to busWatch() of the engine in `data`.
    static gboolean staticBusWatch(GstBus* bus, GstMessage* message, void* data);
    /// Handles one bus message. @return true always: only releaseGstPipeline() removes the watch
    bool busWatch(GstBus* bus, GstMessage* message);

    /// Queues the report of an end: with an empty `error` a normal one, else a failure.
    /// The caller decides what becomes of the pipeline, before it reports.
    void reportPlaybackEnded(const QString& error);
    /// Queues the report of a stop that the client asked for.
    void reportPlaybackStopped();

Q_SIGNALS:
    /// Emitted by the two report functions only; connected queued to on_sendPlaybackEnded().
    void sendPlaybackEnded(bool stop, const QString& msg);

private Q_SLOTS:
    /// Emits the one outcome of this engine on the front object; later reports are dropped.
    /// The client may destroy the front object, and so this engine, in the slot that it calls.
    void on_sendPlaybackEnded(bool stop, const QString& error);

protected:
    /// @param itemToken     the client's identifier of the item
    /// @param outputDevice  the ALSA device to play on
    /// @param frontObject   becomes `player` and the QObject parent; must not be null
    SimplePlayerImpl(const QString& itemToken, const QString& outputDevice,
                     SimplePlayer* frontObject);

    SimplePlayer* player;           ///< the front object; not owned
    GstElement* pipeline = nullptr; ///< one reference is owned; null when there is none
    QString token;                  ///< also read on streaming threads; never changes
    QString device;
    bool initialized = false; ///< what the last initPipeline() returned; outlives the pipeline
    bool endReported = false; ///< read and written by on_sendPlaybackEnded() alone; never cleared

private:
    void handleError(GstMessage* message);
    void handleStateChange(GstMessage* message);
    void handleEndOfStream();
};

/// Logs one TRACE line about a state-change message.
void printGstStateChangeMessage(GstMessage* message, GstState oldState, GstState newState,
                                GstState pendingState);

/// Has GStreamer write a Graphviz picture of `pipeline` into the folder that the environment
/// variable GST_DEBUG_DUMP_DOT_DIR named when GStreamer was initialised; without it does nothing.
///
/// @param pipeline  the pipeline to draw
/// @param prefix    begins the file's name, behind GStreamer's timestamp and a dash
/// @param name      follows the prefix directly
/// @param verbose   draws every detail and adds "-verbose" to the name
void createDotPipelineDump(GstPipeline* pipeline, const std::string& prefix,
                           const std::string& name, bool verbose);

#endif
