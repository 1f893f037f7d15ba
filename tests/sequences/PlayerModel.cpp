#include "sequences/PlayerModel.h"

#include <algorithm>

namespace {

constexpr int readSize = 4096;
constexpr int queueLimit = 1000;
constexpr int pipeLimit = 16384; // far from what a pipe holds

constexpr const char* trace = "TRACE";
constexpr const char* info = "INFO";
constexpr const char* debug = "DEBUG";

} // namespace

PlayerModel::PlayerModel(Source kind, const QString& itemPath) : source(kind)
{
    const QString details = QStringLiteral("constructor T");
    enter(trace, "SimplePlayerImpl::SimplePlayerImpl", details);
    leave(trace, "SimplePlayerImpl::SimplePlayerImpl", details);
    if (source == Source::Uri) {
        enter(trace, "makeUriFromPath", "path: " + itemPath);
        leave(trace, "makeUriFromPath", "File URI: file://" + itemPath);
    } else if (source == Source::Stream) {
        enter(trace, "StreamSimplePlayerImpl::StreamSimplePlayerImpl", details);
        enter(trace, "StreamSimplePlayerImpl::initReadPipe",
              "Open named pipe for reading " + itemPath + " token: T");
        leave(trace, "StreamSimplePlayerImpl::initReadPipe");
        leave(trace, "StreamSimplePlayerImpl::StreamSimplePlayerImpl", details);
        seen.reader = Observation::Reader::Reading;
    }
}

bool PlayerModel::possible(Step step) const
{
    const bool hasElements = seen.pipeline && seen.initialized;
    const bool streaming = hasElements && state >= GST_STATE_PAUSED;
    switch (step) {
    case Step::EndOfStream:
    case Step::PipelineState:
        return seen.pipeline && state > GST_STATE_NULL;
    case Step::Error:
    case Step::NamelessError:
    case Step::Warning:
    case Step::ElementState:
        return hasElements && busOpen;
    case Step::Block:
        return seen.reader != Observation::Reader::Ended && !writerGone && unread < pipeLimit;
    case Step::WriterGone:
        return seen.reader != Observation::Reader::Ended && !writerGone;
    case Step::PushRefused:
        return streaming && !pushRefused;
    case Step::NeedData:
    case Step::EnoughData:
    case Step::SeekData:
        return streaming;
    default:
        return seen.alive;
    }
}

void PlayerModel::take(Step step)
{
    seen.beginStep();
    switch (step) {
    case Step::Start:
        seen.result = start();
        break;
    case Step::Pause:
        seen.result = pause();
        break;
    case Step::Stop:
        seen.result = stopPlayer();
        break;
    case Step::Destroy:
        destroy();
        break;
    case Step::RunLoop:
        runLoop();
        break;
    case Step::EndOfStream:
    case Step::Error:
    case Step::NamelessError:
    case Step::Warning:
        post({step});
        break;
    case Step::ElementState:
        post({Step::Warning}); // of as little interest
        break;
    case Step::PipelineState:
        post({step, GST_STATE_PLAYING, GST_STATE_PAUSED, GST_STATE_READY});
        break;
    case Step::Block:
        unread += blockSize;
        break;
    case Step::WriterGone:
        writerGone = true;
        break;
    case Step::PushRefused:
        source == Source::Data ? feed(true) : void(pushRefused = true);
        break;
    case Step::NeedData:
        source == Source::Data ? feed(false) : calls.push_back({Call::Receive, true, {}});
        break;
    case Step::EnoughData:
        calls.push_back({Call::Receive, false, {}});
        break;
    case Step::SeekData:
        enter(trace, "DataSimplePlayerImpl::seekDataCallback", QStringLiteral("pos: 0"));
        offset = 0;
        break;
    case Step::SwitchLoop:
        loop = !loop;
        break;
    case Step::SeekRefused:
        seekRefused = !seekRefused;
        break;
    case Step::PluginMissing:
        pluginMissing = !pluginMissing;
        break;
    case Step::StateRefused:
        stateRefused = !stateRefused;
        break;
    case Step::StopInSlot:
        stopsInSlot = !stopsInSlot;
        break;
    }
}

// ---- Calls -------------------------------------------------------------------------------------

bool PlayerModel::start()
{
    enter(info, "SimplePlayerImpl::startPlayback");
    // A half-built pipeline is started too.
    if (!seen.pipeline && !setUp()) {
        log("ERROR Failed to setup gst pipeline of simple player");
        return false;
    }
    if (!request(GST_STATE_PLAYING)) {
        log("ERROR state change to state PLAYING failed");
        return false;
    }
    leave(info, "SimplePlayerImpl::startPlayback");
    return true;
}

bool PlayerModel::pause()
{
    enter(info, "SimplePlayerImpl::pausePlayback");
    if (!live()) {
        log("ERROR Pipeline not initialized - not pausing");
        return false;
    }
    if (!request(GST_STATE_PAUSED)) {
        log("ERROR pause state change failed");
        return false;
    }
    leave(info, "SimplePlayerImpl::pausePlayback");
    return true;
}

bool PlayerModel::stop()
{
    enter(info, "SimplePlayerImpl::stopPlayback");
    if (!live()) {
        log("ERROR Pipeline not initialized - not stopping");
        report(false, QStringLiteral("Not initialized"));
        return false;
    }
    if (!request(GST_STATE_NULL)) {
        log("ERROR stop state change failed");
        report(false, QStringLiteral("stop failed"));
        return false;
    }
    leave(info, "SimplePlayerImpl::stopPlayback");
    report(true, QString());
    return true;
}

bool PlayerModel::stopPlayer()
{
    if (source != Source::Stream) {
        return stop();
    }
    enter(trace, "StreamSimplePlayerImpl::stopPlayback");
    const bool stopped = stop();
    closeReader();
    leave(trace, "StreamSimplePlayerImpl::stopPlayback");
    return stopped;
}

void PlayerModel::destroy()
{
    const QString details = QStringLiteral("destructor T");
    if (source == Source::Uri) {
        enter(trace, "UriSimplePlayerImpl::~UriSimplePlayerImpl",
              "Stopping playback at destructor");
        release();
        leave(trace, "UriSimplePlayerImpl::~UriSimplePlayerImpl", QString());
    } else if (source == Source::Stream) {
        enter(trace, "StreamSimplePlayerImpl::~StreamSimplePlayerImpl", details);
        release();
        closeReader();
        leave(trace, "StreamSimplePlayerImpl::~StreamSimplePlayerImpl", details);
    }
    enter(info, "SimplePlayerImpl::~SimplePlayerImpl", details);
    release();
    leave(trace, "SimplePlayerImpl::~SimplePlayerImpl", details);
    const QStringList lines = seen.log;
    seen = Observation();
    seen.log = lines;
    seen.alive = false;
    calls.clear(); // nothing that was queued is delivered
}

// ---- Pipeline ----------------------------------------------------------------------------------

bool PlayerModel::setUp()
{
    enter(trace, "SimplePlayerImpl::setupGstPipeline");
    seen.pipeline = seen.watched = true;
    state = GST_STATE_NULL;
    busOpen = clockChosen = pushRefused = false;
    queued = 0;
    seen.initialized = initPipeline();
    seen.requested = GST_STATE_NULL;
    leave(trace, "SimplePlayerImpl::setupGstPipeline",
          QStringLiteral("ret: %1 token: T").arg(int(seen.initialized)));
    return seen.initialized;
}

bool PlayerModel::initPipeline()
{
    const char* const function = source == Source::Uri    ? "UriSimplePlayerImpl::initPipeline"
                                 : source == Source::Data ? "DataSimplePlayerImpl::initPipeline"
                                                          : "StreamSimplePlayerImpl::initPipeline";
    enter(trace, function);
    if (pluginMissing) {
        log("ERROR could not create alsasink element");
        return false;
    }
    leave(trace, function);
    return true;
}

/// What GStreamer promises of a pipeline whose elements do at once what they are told: it passes
/// through every state on the way and posts a message for each.
bool PlayerModel::request(GstState wanted)
{
    seen.requested = wanted;
    busOpen = busOpen || wanted != GST_STATE_NULL;
    if (stateRefused && seen.initialized && state != wanted) { // a half-built pipeline has no sink
        stateRefused = false;
        return false;
    }
    while (state != wanted) {
        const GstState next = GstState(state < wanted ? state + 1 : state - 1);
        if (next == GST_STATE_PLAYING && !clockChosen) {
            clockChosen = true;
            post({Step::Warning}); // "new-clock"
        }
        post({Step::PipelineState, state, next, next == wanted ? GST_STATE_VOID_PENDING : wanted});
        state = next;
        if (state == GST_STATE_NULL) {
            busOpen = false;
            bus.clear();
        }
    }
    return true;
}

bool PlayerModel::live()
{
    enter(trace, "SimplePlayerImpl::pipelineInitialized",
          QStringLiteral("init: %1").arg(int(seen.initialized)));
    return seen.initialized && seen.pipeline;
}

void PlayerModel::release()
{
    enter(trace, "SimplePlayerImpl::releaseGstPipeline");
    if (!seen.pipeline) {
        log("TRACE Pipeline is already released");
        return;
    }
    log("TRACE Releasing active playback pipeline");
    seen.pipeline = seen.watched = busOpen = false;
    seen.requested = GST_STATE_VOID_PENDING;
    bus.clear();
    leave(trace, "SimplePlayerImpl::releaseGstPipeline");
}

bool PlayerModel::restart()
{
    if (source != Source::Uri) {
        log("ERROR Restart(loop) playback not implemented");
        return false;
    }
    enter(debug, "UriSimplePlayerImpl::restartPlayback", "Seeking back to beginning");
    if (seekRefused) {
        log("ERROR Failed to seek to beginning");
        return false;
    }
    leave(debug, "UriSimplePlayerImpl::restartPlayback", QString());
    return true;
}

void PlayerModel::post(const Message& message)
{
    if (busOpen) {
        bus.push_back(message);
    }
}

void PlayerModel::handle(const Message& message)
{
    if (message.kind == Step::Error || message.kind == Step::NamelessError) {
        const QString reason = message.kind == Step::Error ? errorText : "Unknown error";
        log("ERROR GStreamer error received: " + reason + " token: T");
        release();
        report(false, reason);
    } else if (message.kind == Step::PipelineState) {
        log(QStringLiteral("TRACE GStreamer state change:   src: pipeline old: %1 new: %2 "
                           "pending: %3")
                .arg(gst_element_state_get_name(message.oldState),
                     gst_element_state_get_name(message.newState),
                     gst_element_state_get_name(message.pending)));
    } else if (message.kind == Step::EndOfStream) {
        log("TRACE EOS received at gst busT");
        if (loop && restart()) {
            log("TRACE Looping playbackT");
        } else {
            log("TRACE reporting playback end due to EOS");
            report(false, QString());
        }
    }
}

// ---- Outcome -----------------------------------------------------------------------------------

void PlayerModel::report(bool stopped, const QString& reason)
{
    log(stopped ? "DEBUG token T" : "DEBUG token: T");
    calls.push_back({Call::Report, stopped, reason});
}

void PlayerModel::deliver(const Call& call)
{
    if (call.slot == Call::Receive) {
        receiveNewData(call.flag);
        return;
    }
    enter(debug, "SimplePlayerImpl::on_sendPlaybackEnded",
          QStringLiteral("token: Tstop: %1, msg: %2").arg(int(call.flag)).arg(call.reason));
    if (seen.endReported) {
        log("DEBUG End of playback already reported");
        return;
    }
    seen.endReported = true;
    emitSignal(call.flag               ? QStringLiteral("stopped T")
               : call.reason.isEmpty() ? QStringLiteral("ended T")
                                       : "error T: " + call.reason);
    leave(debug, "SimplePlayerImpl::on_sendPlaybackEnded");
}

void PlayerModel::emitSignal(const QString& signal)
{
    seen.signalsEmitted.append(signal);
    if (stopsInSlot) {
        stopPlayer();
    }
}

/// Qt's GLib dispatcher, pass by pass: all calls that are queued, then the pipe, then one message.
void PlayerModel::runLoop()
{
    while (!calls.empty() || readable() || !bus.empty()) {
        polled = readable();
        const bool hadMessage = !bus.empty();
        for (std::size_t queuedBefore = calls.size(); queuedBefore > 0; --queuedBefore) {
            const Call call = calls.front();
            calls.pop_front();
            deliver(call);
        }
        if (polled && readable()) {
            readerActivated();
        }
        if (hadMessage && !bus.empty()) {
            const Message message = bus.front();
            bus.pop_front();
            handle(message);
        }
    }
}

// ---- Stream ------------------------------------------------------------------------------------

bool PlayerModel::readable() const
{
    return seen.reader == Observation::Reader::Reading && (unread > 0 || writerGone);
}

void PlayerModel::readerActivated()
{
    const char* const function = "StreamSimplePlayerImpl::on_readPipeNotifier_activated";
    enter(trace, function, "sock: pipe token: T");
    if (!live()) {
        log("TRACE Gst pipeline was removed, not processing data");
        closeReader();
        leave(trace, function, "token T");
        return;
    }
    if (unread > 0) {
        pushBlock(std::min(unread, readSize));
    } else {
        log("DEBUG read: 0, closing pipe t:T");
        if (pushRefused) {
            log("ERROR Failed to flush pipeline");
            release();
            report(false, QStringLiteral("Failed to flush pipeline"));
        }
        closeReader();
    }
    leave(trace, function);
}

void PlayerModel::pushBlock(int size)
{
    unread -= size;
    const int ret = pushRefused ? GST_FLOW_FLUSHING : GST_FLOW_OK;
    if (!pushRefused && queued >= queueLimit) {
        receiveNewData(false); // "enough-data", inside the push
    }
    queued += size;
    log(QStringLiteral("TRACE Pushed buffer of size %1, ret: %2").arg(size).arg(ret));
    if (pushRefused) {
        log(QStringLiteral("ERROR Unable to push buffer, ret: %1").arg(ret));
        release();
        report(false, QStringLiteral("Failed to push buffer"));
        closeReader();
    }
}

void PlayerModel::receiveNewData(bool enable)
{
    enter(trace, "StreamSimplePlayerImpl::on_receiveNewData",
          QStringLiteral("read: %1 token: T").arg(int(enable)));
    // Switched off and on again, the notifier waits for the next pass.
    polled = polled && enable;
    if (seen.reader != Observation::Reader::Ended) {
        seen.reader = enable ? Observation::Reader::Reading : Observation::Reader::Held;
    }
    leave(trace, "StreamSimplePlayerImpl::on_receiveNewData");
}

void PlayerModel::closeReader()
{
    enter(trace, "StreamSimplePlayerImpl::closeReadPipe");
    seen.reader = Observation::Reader::Ended;
    leave(trace, "StreamSimplePlayerImpl::closeReadPipe");
}

// ---- Data --------------------------------------------------------------------------------------

void PlayerModel::feed(bool refused)
{
    enter(trace, "DataSimplePlayerImpl::feedDataCallback",
          QStringLiteral("size: %1 overall %2").arg(requestSize).arg(arrayLeft));
    const int ret = refused ? GST_FLOW_FLUSHING : GST_FLOW_OK;
    if (offset >= arrayLeft) {
        log(QStringLiteral("DEBUG EOS sent with ret%1").arg(ret));
        arrayLeft = 0;
        return;
    }
    const int size = std::min(requestSize, arrayLeft - offset);
    if (size < requestSize) {
        log(QStringLiteral("DEBUG Cropping to size %1").arg(size));
    }
    log(QStringLiteral("TRACE Pushed buffer of size %1 offset %2 , ret: %3")
            .arg(size)
            .arg(offset)
            .arg(ret));
    if (!refused) {
        offset += size;
        return;
    }
    log(QStringLiteral("ERROR Unable to push buffer, ret: %1").arg(ret));
    // The one signal that passes the guard, on the thread that pushes.
    seen.signalsEmitted.append("error T: Failed to push buffer (outside the event loop)");
}

// ---- Log ---------------------------------------------------------------------------------------

void PlayerModel::enter(const char* level, const char* function, const QString& details)
{
    log(QStringLiteral("%1 Enter SimplePlayer %2: ").arg(level, function) + details);
}

void PlayerModel::leave(const char* level, const char* function, const QString& details)
{
    log(QStringLiteral("%1 Leave SimplePlayer %2: ").arg(level, function) + details);
}
