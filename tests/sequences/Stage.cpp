#include "sequences/Stage.h"

#include "kit/GstLeaks.h"
#include "kit/TestProcess.h"
#include "sequences/InertElements.h"
#include "sequences/PlayerModel.h"

#include <core/KovaNamedPipe.h>
#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/DataSimplePlayer_p.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer_p.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>

#include <fcntl.h>
#include <unistd.h>

Scenery scenery;

namespace {

// The members of the engines that are protected: a derived class may name them.

struct Stream : StreamSimplePlayerImpl
{
    static KovaNamedPipe* pipeOf(const SimplePlayerImpl* engine)
    {
        return static_cast<const StreamSimplePlayerImpl*>(engine)->*&Stream::pipe;
    }
    static GstElement* appsrcOf(const SimplePlayerImpl* engine)
    {
        return static_cast<const StreamSimplePlayerImpl*>(engine)->*&Stream::appsrc;
    }
};

struct Data : DataSimplePlayerImpl
{
    static GstElement* appsrcOf(const SimplePlayerImpl* engine)
    {
        return static_cast<const DataSimplePlayerImpl*>(engine)->*&Data::appsrc;
    }
};

struct Any : SimplePlayerImpl
{
    static GstElement* pipelineOf(const SimplePlayerImpl* engine)
    {
        return engine->*&Any::pipeline;
    }
    static bool initializedOf(const SimplePlayerImpl* engine) { return engine->*&Any::initialized; }
    static bool endReportedOf(const SimplePlayerImpl* engine) { return engine->*&Any::endReported; }
};

/// More passes of the event loop than any step needs: it never comes to rest.
constexpr int tooManyPasses = 10000;

GstMessage* stateChange(GstElement* element)
{
    return gst_message_new_state_changed(GST_OBJECT(element), GST_STATE_PLAYING, GST_STATE_PAUSED,
                                         GST_STATE_READY);
}

} // namespace

Stage::Stage(Source kind) : source(kind)
{
    inert::faults = {};
    makePlayer();
    connectSignals();
    look();
}

Stage::~Stage()
{
    player.reset();
    missing.reset();
    if (writer >= 0) {
        ::close(writer);
    }
    // A build that failed has abandoned what it made, on purpose. Real elements are never missing,
    // and their threads may still be making some for themselves.
    if (!scenery.realElements) {
        freeAbandonedGstElements();
    }
}

QString Stage::itemPath(Source source)
{
    return TestProcess::path(source == Source::Uri ? QStringLiteral("item")
                                                   : QStringLiteral("pipe"));
}

void Stage::makePlayer()
{
    const QString token = QStringLiteral("T");
    const QString path = itemPath(source);
    if (source == Source::Uri) {
        player = std::make_unique<UriSimplePlayer>(path, token, scenery.device);
    } else if (source == Source::Data) {
        player = std::make_unique<DataSimplePlayer>(scenery.item, token, scenery.device);
    } else {
        player = std::make_unique<StreamSimplePlayer>(path, QString(), token, scenery.device);
        writer = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    }
    engine = player->findChild<SimplePlayerImpl*>();
    if (source == Source::Stream) {
        activation =
            QStringLiteral("sock: %1 ").arg(Stream::pipeOf(engine)->readNotifier()->socket());
    }
}

void Stage::connectSignals()
{
    // Directly, to see the emission itself and where it comes from. The thread of a step that is
    // not this one has ended when the step has.
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

void Stage::emitted(const QString& outcome)
{
    const bool onOurThread = QThread::currentThread() == QCoreApplication::instance()->thread();
    if (!onOurThread && scenery.realElements) {
        return; // a push that was in flight when the player was stopped, at its own pace
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

void Stage::take(Step step)
{
    seen.beginStep();
    log.clear();
    context = Context::Event;
    act(step);
    look();
}

/// The calls of the client and the circumstances.
void Stage::act(Step step)
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
        // Nothing may come any more; what does would be seen in this step.
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
void Stage::happen(Step event)
{
    GstElement* const pipeline = Any::pipelineOf(engine);
    switch (event) {
    case Step::EndOfStream:
        post(gst_message_new_eos(GST_OBJECT(pipeline)));
        break;
    case Step::PipelineState:
        post(stateChange(pipeline));
        break;
    case Step::Error:
    case Step::NamelessError:
    case Step::Warning:
    case Step::ElementState:
        postFromSink(event);
        break;
    case Step::Block: {
        const QByteArray block(PlayerModel::blockSize, 'a');
        if (::write(writer, block.constData(), std::size_t(block.size())) != block.size()) {
            qFatal("the pipe takes no block");
        }
        break;
    }
    case Step::WriterGone:
        ::close(writer);
        writer = -1;
        break;
    case Step::PushRefused:
        if (source == Source::Stream) {
            inert::setFlushing(Stream::appsrcOf(engine), true);
        } else {
            inert::setFlushing(Data::appsrcOf(engine), true);
            inert::emitNeedData(Data::appsrcOf(engine), PlayerModel::requestSize);
            inert::setFlushing(Data::appsrcOf(engine), false);
        }
        break;
    case Step::NeedData:
        inert::emitNeedData(source == Source::Stream ? Stream::appsrcOf(engine)
                                                     : Data::appsrcOf(engine),
                            PlayerModel::requestSize);
        break;
    case Step::EnoughData:
        inert::emitEnoughData(Stream::appsrcOf(engine));
        break;
    case Step::SeekData:
        inert::emitSeekData(Data::appsrcOf(engine), 0);
        break;
    default:
        break;
    }
}

/// Calls the player as its client does, with the refusal that is waiting. Only a request for
/// another state meets it. A release never does: GStreamer forbids to give up what does not reach
/// NULL.
bool Stage::call(bool (SimplePlayer::*function)(), GstState wanted)
{
    GstElement* const pipeline = Any::pipelineOf(engine);
    const GstState state = pipeline ? GST_STATE(pipeline) : GST_STATE_NULL;
    inert::faults.stateChange = stateRefused && state != wanted;
    const bool result = (player.get()->*function)();
    stateRefused = inert::faults.stateChange || (stateRefused && state == wanted);
    inert::faults.stateChange = false;
    return result;
}

/// A message is taken by the event loop later.
void Stage::post(GstMessage* message) const
{
    GstBus* bus = gst_element_get_bus(Any::pipelineOf(engine));
    gst_bus_post(bus, message);
    gst_object_unref(bus);
}

void Stage::postFromSink(Step step) const
{
    GstElement* sink = gst_bin_get_by_name(GST_BIN(Any::pipelineOf(engine)), "AudioSink");
    GError* error = g_error_new_literal(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE,
                                        step == Step::NamelessError ? "" : PlayerModel::errorText);
    post(step == Step::ElementState ? stateChange(sink)
         : step == Step::Warning    ? gst_message_new_warning(GST_OBJECT(sink), error, "details")
                                    : gst_message_new_error(GST_OBJECT(sink), error, "details"));
    g_error_free(error);
    gst_object_unref(sink);
}

bool Stage::busHasMessages() const
{
    GstElement* const pipeline = player ? Any::pipelineOf(engine) : nullptr;
    if (!pipeline) {
        return false;
    }
    GstBus* bus = gst_element_get_bus(pipeline);
    const bool pending = gst_bus_have_pending(bus);
    gst_object_unref(bus);
    return pending;
}

void Stage::runLoop()
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
    seen.signalsEmitted.append("the event loop never comes to rest");
}

// ---- What can be seen --------------------------------------------------------------------------

Observation::Reader Stage::reader() const
{
    if (!player || source != Source::Stream) {
        return Observation::Reader::None;
    }
    KovaNamedPipe* pipe = Stream::pipeOf(engine);
    return !pipe                               ? Observation::Reader::Ended
           : pipe->readNotifier()->isEnabled() ? Observation::Reader::Reading
                                               : Observation::Reader::Held;
}

/// The numbers of GStreamer's pipelines and of descriptors are no business of the model.
QString Stage::withoutNumbers(QString line) const
{
    const QLatin1String prefix("TRACE GStreamer state change:   src: pipeline");
    if (line.startsWith(prefix)) {
        const int begin = prefix.size();
        line.remove(begin, line.indexOf(' ', begin) - begin);
    } else if (!activation.isEmpty()) {
        line.replace(activation, QStringLiteral("sock: pipe "));
    }
    return line;
}

void Stage::look()
{
    for (const QString& line : log.lines()) {
        seen.log.append(withoutNumbers(line));
    }
    GstElement* const pipeline = player ? Any::pipelineOf(engine) : nullptr;
    seen.alive = player != nullptr;
    seen.pipeline = pipeline != nullptr;
    seen.watched = g_main_context_find_source_by_user_data(nullptr, engine) != nullptr;
    seen.initialized = player && Any::initializedOf(engine);
    seen.endReported = player && Any::endReportedOf(engine);
    seen.requested = pipeline ? GST_STATE_TARGET(pipeline) : GST_STATE_VOID_PENDING;
    seen.reader = reader();
}
