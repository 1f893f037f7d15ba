#include "simplePlayer/SimplePlayerInterface.h"
#include "simplePlayer/GstOwners_p.h"
#include "simplePlayer/Logging_p.h"
#include "simplePlayer/SimplePlayerInterface_p.h"

#include "core/kova.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance("SimplePlayer");

// ---- SimplePlayer ------------------------------------------------------------------------------

SimplePlayer::SimplePlayer(QObject* parent) : QObject(parent)
{
}

SimplePlayer::~SimplePlayer() = default;

// ---- FakePlayer --------------------------------------------------------------------------------

FakePlayer::FakePlayer(const QString& itemToken, QObject* parent)
    : SimplePlayer(parent), token(itemToken)
{
}

FakePlayer::~FakePlayer() = default;

bool FakePlayer::startPlayback()
{
    return true;
}

bool FakePlayer::pausePlayback()
{
    // Both share one body. The call is qualified: an override in a derived class must not change
    // it.
    return FakePlayer::startPlayback();
}

bool FakePlayer::stopPlayback()
{
    // A copy, because the client's slot may delete this player while it uses the token.
    const QString tokenOfSignal = token;
    Q_EMIT playbackStopped(tokenOfSignal);
    return true;
}

// ---- SimplePlayerImpl: lifecycle and control ---------------------------------------------------

SimplePlayerImpl::SimplePlayerImpl(const QString& itemToken, const QString& outputDevice,
                                   SimplePlayer* frontObject)
    : QObject(frontObject), player(frontObject), token(itemToken), device(outputDevice)
{
    LOG_ENTER(TRACE, "constructor ", token);
    gst_init(nullptr, nullptr);
    kova::connect(this, &SimplePlayerImpl::sendPlaybackEnded, this,
                  &SimplePlayerImpl::on_sendPlaybackEnded, Qt::QueuedConnection);
    LOG_LEAVE(TRACE, "constructor ", token);
}

SimplePlayerImpl::~SimplePlayerImpl()
{
    // The entry line is at INFO and the leave line at TRACE, so that a log at INFO shows the
    // destruction of a player once.
    LOG_ENTER(INFO, "destructor ", token);
    releaseGstPipeline();
    LOG_LEAVE(TRACE, "destructor ", token);
}

bool SimplePlayerImpl::setupGstPipeline()
{
    LOG_ENTER(TRACE, "token: ", token);
    pipeline = gst_pipeline_new(nullptr);
    if (!pipeline) {
        LOG_LINE(ERROR, "Failed to create gst pipeline");
        return false;
    }
    // The watch is attached to the current default main context of this thread, which Qt's GLib
    // dispatcher iterates. Its id is not needed: the watch is removed through the bus.
    gst_bus_add_watch(gst::Bus(gst_element_get_bus(pipeline)).get(), staticBusWatch, this);
    initialized = initPipeline(pipeline);
    // Also logged when building failed, with "ret: 0".
    LOG_LEAVE(TRACE, "ret: ", initialized, " token: ", token);
    return initialized;
}

bool SimplePlayerImpl::pipelineInitialized()
{
    LOG_ENTER(TRACE, "init: ", initialized);
    return initialized && pipeline != nullptr;
}

bool SimplePlayerImpl::startPlayback()
{
    LOG_ENTER(INFO, "token: ", token);
    // Only the pointer is tested, not `initialized`: after a failed setup, another start continues
    // with the half-built pipeline. Clients rely on its result; do not build the pipeline again.
    if (!pipeline && !setupGstPipeline()) {
        LOG_LINE(ERROR, "Failed to setup gst pipeline of simple player");
        return false;
    }
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        LOG_LINE(ERROR, "state change to state ", gst_element_state_get_name(GST_STATE_PLAYING),
                 " failed");
        return false;
    }
    LOG_LEAVE(INFO, "token: ", token);
    return true;
}

bool SimplePlayerImpl::pausePlayback()
{
    LOG_ENTER(INFO, "token: ", token);
    if (!pipelineInitialized()) {
        LOG_LINE(ERROR, "Pipeline not initialized - not pausing");
        return false;
    }
    if (gst_element_set_state(pipeline, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
        LOG_LINE(ERROR, "pause state change failed");
        return false;
    }
    LOG_LEAVE(INFO, "token: ", token);
    return true;
}

bool SimplePlayerImpl::stopPlayback()
{
    LOG_ENTER(INFO, "token: ", token);
    if (!pipelineInitialized()) {
        LOG_LINE(ERROR, "Pipeline not initialized - not stopping");
        reportPlaybackEnded(QStringLiteral("Not initialized"));
        return false;
    }
    // The pipeline is kept. A later start plays the item from the beginning with it.
    if (gst_element_set_state(pipeline, GST_STATE_NULL) == GST_STATE_CHANGE_FAILURE) {
        LOG_LINE(ERROR, "stop state change failed");
        reportPlaybackEnded(QStringLiteral("stop failed"));
        return false;
    }
    LOG_LEAVE(INFO, "token: ", token);
    reportPlaybackStopped();
    return true;
}

bool SimplePlayerImpl::restartPlayback()
{
    LOG_LINE(ERROR, "Restart(loop) playback not implemented");
    return false;
}

void SimplePlayerImpl::releaseGstPipeline()
{
    LOG_ENTER(TRACE, "token: ", token);
    if (!pipeline) {
        LOG_LINE(TRACE, "Pipeline is already released");
        return; // no leave line, because nothing was done
    }
    LOG_LINE(TRACE, "Releasing active playback pipeline");
    gst_element_set_state(pipeline, GST_STATE_NULL);
    // If the watch itself calls this, GLib keeps its source alive until it returns.
    gst_bus_remove_watch(gst::Bus(gst_element_get_bus(pipeline)).get());
    gst_object_unref(pipeline);
    // `initialized` is not changed: pipelineInitialized() is false without a pipeline.
    pipeline = nullptr;
    LOG_LEAVE(TRACE, "token: ", token);
}

// ---- SimplePlayerImpl: bus watch ---------------------------------------------------------------

gboolean SimplePlayerImpl::staticBusWatch(GstBus* bus, GstMessage* message, void* data)
{
    return static_cast<SimplePlayerImpl*>(data)->busWatch(bus, message);
}

bool SimplePlayerImpl::busWatch(GstBus* /*bus*/, GstMessage* message)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
        handleError(message);
        break;
    case GST_MESSAGE_STATE_CHANGED:
        handleStateChange(message);
        break;
    case GST_MESSAGE_EOS:
        handleEndOfStream();
        break;
    default:
        break;
    }
    return true;
}

void SimplePlayerImpl::handleError(GstMessage* message)
{
    GError* parsedError = nullptr;
    gchar* parsedDebug = nullptr;
    gst_message_parse_error(message, &parsedError, &parsedDebug);
    const gst::Error error(parsedError);
    const gst::Text debug(parsedDebug); // never logged

    QString reason = error ? QString::fromUtf8(error->message) : QString();
    if (reason.isEmpty()) {
        reason = QStringLiteral("Unknown error");
    }
    LOG_LINE(ERROR, "GStreamer error received: ", reason, " token: ", token);
    releaseGstPipeline();
    reportPlaybackEnded(reason);
}

void SimplePlayerImpl::handleStateChange(GstMessage* message)
{
    // Every element posts these messages; only those of the pipeline itself are handled.
    if (!pipeline || GST_MESSAGE_SRC(message) != GST_OBJECT_CAST(pipeline)) {
        return;
    }
    GstState oldState = GST_STATE_VOID_PENDING;
    GstState newState = GST_STATE_VOID_PENDING;
    GstState pendingState = GST_STATE_VOID_PENDING;
    gst_message_parse_state_changed(message, &oldState, &newState, &pendingState);

    printGstStateChangeMessage(message, oldState, newState, pendingState);
    createDotPipelineDump(GST_PIPELINE(pipeline), "SimplePlayer",
                          logging::compose("statechange-old-", gst_element_state_get_name(oldState),
                                           "-cur-", gst_element_state_get_name(newState),
                                           "-pending-", gst_element_state_get_name(pendingState)),
                          false);
}

void SimplePlayerImpl::handleEndOfStream()
{
    // No blank between the text and the token, here and below: the texts are fixed.
    LOG_LINE(TRACE, "EOS received at gst bus", token);
    if (player->loop && restartPlayback()) {
        LOG_LINE(TRACE, "Looping playback", token);
        return;
    }
    LOG_LINE(TRACE, "reporting playback end due to EOS");
    reportPlaybackEnded(QString());
}

// ---- SimplePlayerImpl: reporting ---------------------------------------------------------------

void SimplePlayerImpl::reportPlaybackEnded(const QString& error)
{
    LOG_LINE(DEBUG, "token: ", token);
    Q_EMIT sendPlaybackEnded(false, error);
}

void SimplePlayerImpl::reportPlaybackStopped()
{
    LOG_LINE(DEBUG, "token ", token); // without the colon of the other report
    Q_EMIT sendPlaybackEnded(true, QString());
}

void SimplePlayerImpl::on_sendPlaybackEnded(bool stop, const QString& error)
{
    // No blank between the token and "stop: ": the text is fixed.
    LOG_ENTER(DEBUG, "token: ", token, "stop: ", stop, ", msg: ", error);
    if (endReported) {
        LOG_LINE(DEBUG, "End of playback already reported");
        return;
    }
    // Set before the emission, so that a client may stop its player in the slot.
    endReported = true;

    // Copies, because the client's slot may delete the front object and thereby this engine.
    // Nothing after the emission uses a member.
    const QString tokenOfSignal = token;
    const QString reason = error; // NOLINT(performance-unnecessary-copy-initialization)
    if (stop) {
        Q_EMIT player->playbackStopped(tokenOfSignal);
    } else if (!reason.isEmpty()) {
        Q_EMIT player->playbackErrorReported(tokenOfSignal, reason);
    } else {
        Q_EMIT player->playbackEnded(tokenOfSignal);
    }
    LOG_LEAVE(DEBUG, "token: ", tokenOfSignal);
}

// ---- Diagnostics -------------------------------------------------------------------------------

void printGstStateChangeMessage(GstMessage* message, GstState oldState, GstState newState,
                                GstState pendingState)
{
    // The name is fetched even when TRACE is disabled.
    GstObject* source = GST_MESSAGE_SRC(message);
    const gst::Text sourceName(source ? gst_object_get_name(source) : nullptr);
    // The three blanks between "change:" and "src:" in the finished line are part of its format.
    LOG_LINE(TRACE,
             "GStreamer state change:  ", " src: ", sourceName ? sourceName.get() : "<no name>",
             " old: ", gst_element_state_get_name(oldState),
             " new: ", gst_element_state_get_name(newState),
             " pending: ", gst_element_state_get_name(pendingState));
}

void createDotPipelineDump(GstPipeline* pipeline, const std::string& prefix,
                           const std::string& name, bool verbose)
{
    const std::string fileName = prefix + name + (verbose ? "-verbose" : "");
    gst_debug_bin_to_dot_file_with_ts(
        GST_BIN(pipeline), verbose ? GST_DEBUG_GRAPH_SHOW_VERBOSE : GST_DEBUG_GRAPH_SHOW_ALL,
        fileName.c_str());
}
