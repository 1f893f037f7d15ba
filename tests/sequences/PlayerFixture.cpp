#include "sequences/PlayerFixture.h"

#include "kit/GstLeaks.h"
#include "kit/SourceEngine.h"
#include "sequences/InertElements.h"
#include "sequences/PlayerModel.h"

#include <core/KovaNamedPipe.h>
#include <simplePlayer/StreamSimplePlayer_p.h>

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>

PlayerSettings playerSettings;

namespace {

// What is protected in the engines, beside EngineAccess.

struct GuardAccess : SimplePlayerImpl
{
    static bool endReportedOf(SimplePlayerImpl& engine)
    {
        return engine.*&GuardAccess::endReported;
    }
};

struct StreamAccess : StreamSimplePlayerImpl
{
    static KovaNamedPipe* pipeOf(StreamSimplePlayerImpl& engine)
    {
        return engine.*&StreamAccess::pipe;
    }
};

/// More passes of the event loop than any step needs: it never ends.
constexpr int tooManyPasses = 10000;

GstMessage* stateChange(GstElement* element)
{
    return gst_message_new_state_changed(GST_OBJECT(element), GST_STATE_PLAYING, GST_STATE_PAUSED,
                                         GST_STATE_READY);
}

} // namespace

PlayerFixture::PlayerFixture(const Source& kind)
    : source(kind), player(source.makePlayer(*playerSettings.item, QStringLiteral("T"),
                                             playerSettings.device, nullptr)),
      engine(engineOf(*player))
{
    inert::faults = {};
    inert::seeks = 0;
    if (source.hasWriter) {
        writer.emplace(playerSettings.item->fifo);
    }
    connectSignals();
    observe();
}

PlayerFixture::~PlayerFixture()
{
    player.reset();
    missing.reset();
    // A failed build does not release the elements that it made. Real elements are never missing,
    // and their threads may be making further ones.
    if (!playerSettings.realElements) {
        freeAbandonedGstElements();
    }
}

void PlayerFixture::connectSignals()
{
    // Directly, to observe the emission and its thread. The thread of a step that is not this one
    // ends with the step.
    QObject::connect(
        player.get(), &SimplePlayer::playbackEnded, player.get(),
        [this](const QString& token) { emitted("ended " + token); }, Qt::DirectConnection);
    QObject::connect(
        player.get(), &SimplePlayer::playbackStopped, player.get(),
        [this](const QString& token) { emitted("stopped " + token); }, Qt::DirectConnection);
    QObject::connect(
        player.get(), &SimplePlayer::playbackErrorReported, player.get(),
        [this](const QString& token, const QString& reason) {
            emitted("error " + token + ": " + reason);
        },
        Qt::DirectConnection);
}

void PlayerFixture::emitted(const QString& outcome)
{
    const bool onOurThread = QThread::currentThread() == QCoreApplication::instance()->thread();
    if (!onOurThread && playerSettings.realElements) {
        return; // a push that a stop has overtaken, at any time
    }
    if (context == Context::Loop && onOurThread) {
        seen.signalsEmitted.append(outcome);
        ++outcomesOfLoop;
        if (stopsInSlot) {
            call(&SimplePlayer::stopPlayback, GST_STATE_NULL);
        }
        return;
    }
    seen.signalsEmitted.append(outcome + (context == Context::Call
                                              ? QStringLiteral(" (inside a call)")
                                              : QStringLiteral(" (outside the event loop)")));
}

// ---- Steps -------------------------------------------------------------------------------------

void PlayerFixture::take(Step step)
{
    seen.beginStep();
    context = Context::Event;
    act(step);
    observe();
}

/// The calls of the client and the circumstances.
void PlayerFixture::act(Step step)
{
    switch (step) {
    case Step::Start:
        context = Context::Call;
        seen.result = call(&SimplePlayer::startPlayback, GST_STATE_PLAYING);
        break;
    case Step::Pause:
        context = Context::Call;
        seen.result = call(&SimplePlayer::pausePlayback, GST_STATE_PAUSED);
        break;
    case Step::Stop:
        context = Context::Call;
        seen.result = call(&SimplePlayer::stopPlayback, GST_STATE_NULL);
        break;
    case Step::Destroy:
        context = Context::Call;
        player.reset();
        // Outcomes that follow would be observed in this step.
        runLoop();
        break;
    case Step::SwitchLoop:
        player->loop = !player->loop;
        break;
    case Step::RunLoop:
        runLoop();
        break;
    case Step::SeekRefused:
        inert::faults.seek = !inert::faults.seek;
        break;
    case Step::PluginMissing:
        missing ? missing.reset() : void(missing.emplace("alsasink"));
        break;
    case Step::StateRefused:
        stateRefused = !stateRefused;
        break;
    case Step::StopInSlot:
        stopsInSlot = !stopsInSlot;
        break;
    default:
        happen(step);
    }
}

/// The events around a player.
void PlayerFixture::happen(Step event)
{
    switch (event) {
    case Step::EndOfStream:
        post(gst_message_new_eos(GST_OBJECT(pipeline())));
        break;
    case Step::PipelineState:
        post(stateChange(pipeline()));
        break;
    case Step::Error:
    case Step::NamelessError:
    case Step::Warning:
    case Step::ElementState:
        postFromSink(event);
        break;
    case Step::Block:
        writer->write(QByteArray(PlayerModel::blockSize, 'a'));
        break;
    case Step::WriterGone:
        writer->close();
        break;
    case Step::PushRefused:
        refusePush();
        break;
    case Step::NeedData:
        inert::emitNeedData(element("AppSrc"), PlayerModel::requestSize);
        break;
    case Step::EnoughData:
        inert::emitEnoughData(element("AppSrc"));
        break;
    case Step::SeekData:
        inert::emitSeekData(element("AppSrc"), 0);
        break;
    default:
        break;
    }
}

void PlayerFixture::refusePush()
{
    GstElement* const appsrc = element("AppSrc");
    inert::setFlushing(appsrc, true);
    if (!source.hasWriter) {
        inert::emitNeedData(appsrc, PlayerModel::requestSize);
        inert::setFlushing(appsrc, false);
    }
}

GstElement* PlayerFixture::pipeline() const
{
    return player ? EngineAccess::pipelineOf(*engine) : nullptr;
}

/// An element of the pipeline, which owns it.
GstElement* PlayerFixture::element(const char* name) const
{
    GstElement* found = gst_bin_get_by_name(GST_BIN(pipeline()), name);
    if (found) {
        gst_object_unref(found);
    }
    return found;
}

/// Calls the player as its client does. A request for another state is refused if that is switched
/// on. A release never is: GStreamer requires that an element reaches NULL.
bool PlayerFixture::call(bool (SimplePlayer::*function)(), GstState wanted)
{
    const GstState state = pipeline() ? GST_STATE(pipeline()) : GST_STATE_NULL;
    inert::faults.stateChange = stateRefused && state != wanted;
    const bool result = (player.get()->*function)();
    stateRefused = inert::faults.stateChange || (stateRefused && state == wanted);
    inert::faults.stateChange = false;
    return result;
}

/// The event loop delivers the message later.
void PlayerFixture::post(GstMessage* message) const
{
    GstBus* bus = gst_element_get_bus(pipeline());
    gst_bus_post(bus, message);
    gst_object_unref(bus);
}

void PlayerFixture::postFromSink(Step step) const
{
    GstElement* const sink = element("AudioSink");
    GError* error = g_error_new_literal(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE,
                                        step == Step::NamelessError ? "" : PlayerModel::errorText);
    post(step == Step::ElementState ? stateChange(sink)
         : step == Step::Warning    ? gst_message_new_warning(GST_OBJECT(sink), error, "details")
                                    : gst_message_new_error(GST_OBJECT(sink), error, "details"));
    g_error_free(error);
}

bool PlayerFixture::busHasMessages() const
{
    if (!pipeline()) {
        return false;
    }
    GstBus* bus = gst_element_get_bus(pipeline());
    const bool pending = gst_bus_have_pending(bus);
    gst_object_unref(bus);
    return pending;
}

void PlayerFixture::runLoop()
{
    context = Context::Loop;
    for (int passes = 0; passes < tooManyPasses; ++passes) {
        const bool delivered =
            QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents);
        // A bus wakes the loop a moment later when a streaming thread posts at the same time.
        const bool waiting = !delivered && busHasMessages();
        if (!delivered && !waiting) {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            return;
        }
        if (waiting) {
            QThread::msleep(1);
        }
    }
    seen.signalsEmitted.append("the event loop never ends");
}

// ---- Observation -------------------------------------------------------------------------------

Observation::Reader PlayerFixture::reader() const
{
    auto* stream = player ? qobject_cast<StreamSimplePlayerImpl*>(engine) : nullptr;
    if (!stream) {
        return Observation::Reader::None;
    }
    KovaNamedPipe* pipe = StreamAccess::pipeOf(*stream);
    return !pipe                               ? Observation::Reader::Ended
           : pipe->readNotifier()->isEnabled() ? Observation::Reader::Reading
                                               : Observation::Reader::Held;
}

void PlayerFixture::observe()
{
    seen.alive = player != nullptr;
    seen.pipeline = pipeline() != nullptr;
    seen.watched = g_main_context_find_source_by_user_data(nullptr, engine) != nullptr;
    seen.initialized = player && EngineAccess::initializedOf(*engine);
    seen.endReported = player && GuardAccess::endReportedOf(*engine);
    seen.requested = pipeline() ? GST_STATE_TARGET(pipeline()) : GST_STATE_VOID_PENDING;
    seen.reader = reader();
    GstElement* const appsrc = pipeline() ? element("AppSrc") : nullptr;
    seen.pushed = appsrc ? inert::bytesIn(appsrc) : 0;
    seen.seeks = player ? inert::seeks : 0;
}
