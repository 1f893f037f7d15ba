#include "sequences/PlayerModel.h"

#include <algorithm>

namespace {

constexpr int readSize = 4096;
constexpr int queueLimit = 1000;
constexpr int pipeLimit = 16384; // far from what a pipe holds

} // namespace

PlayerModel::PlayerModel(const Source& kind) : source(&kind)
{
    seen.reader = source->hasWriter ? Observation::Reader::Reading : Observation::Reader::None;
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
    case Step::PipelineState:
    case Step::ElementState:
        post(step);
        break;
    case Step::Block:
        unread += blockSize;
        break;
    case Step::WriterGone:
        writerGone = true;
        break;
    case Step::PushRefused:
        source->hasWriter ? void(pushRefused = true) : feed(true);
        break;
    case Step::NeedData:
        source->hasWriter ? calls.push_back({Call::Receive, true, {}}) : feed(false);
        break;
    case Step::EnoughData:
        calls.push_back({Call::Receive, false, {}});
        break;
    case Step::SeekData:
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
    // A half-built pipeline is started too.
    return (seen.pipeline || setUp()) && request(GST_STATE_PLAYING);
}

bool PlayerModel::pause()
{
    return isInitialized() && request(GST_STATE_PAUSED);
}

bool PlayerModel::stop()
{
    if (!isInitialized()) {
        report(false, QStringLiteral("Not initialized"));
        return false;
    }
    if (!request(GST_STATE_NULL)) {
        report(false, QStringLiteral("stop failed"));
        return false;
    }
    report(true, QString());
    return true;
}

bool PlayerModel::stopPlayer()
{
    const bool stopped = stop();
    closeReader();
    return stopped;
}

void PlayerModel::destroy()
{
    seen = Observation();
    seen.alive = false;
    calls.clear(); // nothing that was queued is delivered
    bus.clear();
}

// ---- Pipeline ----------------------------------------------------------------------------------

bool PlayerModel::setUp()
{
    seen.pipeline = seen.watched = true;
    state = GST_STATE_NULL;
    busOpen = clockChosen = pushRefused = false;
    seen.pushed = 0;
    seen.initialized = !pluginMissing;
    seen.requested = GST_STATE_NULL;
    return seen.initialized;
}

/// A pipeline whose elements change state at once passes through every state on the way and posts a
/// message for each.
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
            post(Step::Warning); // "new-clock"
        }
        post(Step::PipelineState);
        state = next;
        if (state == GST_STATE_NULL) {
            busOpen = false;
            bus.clear();
        }
    }
    return true;
}

bool PlayerModel::isInitialized() const
{
    return seen.initialized && seen.pipeline;
}

void PlayerModel::release()
{
    seen.pipeline = seen.watched = busOpen = false;
    seen.requested = GST_STATE_VOID_PENDING;
    seen.pushed = 0;
    bus.clear();
}

bool PlayerModel::restart()
{
    seen.seeks += source->loops ? 1 : 0;
    return source->loops && !seekRefused;
}

void PlayerModel::post(Step message)
{
    if (busOpen) {
        bus.push_back(message);
    }
}

void PlayerModel::handle(Step message)
{
    if (message == Step::Error || message == Step::NamelessError) {
        fail(message == Step::Error ? errorText : "Unknown error");
    } else if (message == Step::EndOfStream && !(loop && restart())) {
        report(false, QString());
    }
}

// ---- Outcome -----------------------------------------------------------------------------------

void PlayerModel::report(bool stopped, const QString& reason)
{
    calls.push_back({Call::Report, stopped, reason});
}

void PlayerModel::deliver(const Call& call)
{
    if (call.slot == Call::Receive) {
        receiveNewData(call.flag);
        return;
    }
    if (seen.endReported) {
        return;
    }
    seen.endReported = true;
    emitSignal(call.flag               ? QStringLiteral("stopped T")
               : call.reason.isEmpty() ? QStringLiteral("ended T")
                                       : "error T: " + call.reason);
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
            const Step message = bus.front();
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
    if (!isInitialized()) {
        closeReader();
    } else if (unread > 0) {
        pushBlock(std::min(unread, readSize));
    } else {
        if (pushRefused) {
            fail(QStringLiteral("Failed to flush pipeline"));
        }
        closeReader();
    }
}

void PlayerModel::pushBlock(int size)
{
    unread -= size;
    if (pushRefused) {
        fail(QStringLiteral("Failed to push buffer"));
        closeReader();
        return;
    }
    if (seen.pushed >= queueLimit) {
        receiveNewData(false); // "enough-data", inside the push
    }
    seen.pushed += size;
}

void PlayerModel::fail(const QString& reason)
{
    release();
    report(false, reason);
}

void PlayerModel::receiveNewData(bool enable)
{
    // Switched off and on again, the notifier waits for the next pass.
    polled = polled && enable;
    if (seen.reader != Observation::Reader::Ended) {
        seen.reader = enable ? Observation::Reader::Reading : Observation::Reader::Held;
    }
}

void PlayerModel::closeReader()
{
    if (source->hasWriter) {
        seen.reader = Observation::Reader::Ended;
    }
}

// ---- Data --------------------------------------------------------------------------------------

void PlayerModel::feed(bool refused)
{
    if (offset >= arrayLeft) {
        arrayLeft = 0;
    } else if (refused) {
        // The one signal that passes the guard, on the thread that pushes.
        seen.signalsEmitted.append("error T: Failed to push buffer (outside the event loop)");
    } else {
        const int size = std::min(requestSize, arrayLeft - offset);
        offset += size;
        seen.pushed += size;
    }
}
