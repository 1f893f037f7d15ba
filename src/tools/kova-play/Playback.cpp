#include "Playback.h"

#include "Elements.h"

namespace {

/// How long a player that refused to start may take to report GStreamer's reason, in milliseconds.
/// The reason lies on the bus when the start returns. GLib delivers it before any timer, so this is
/// no race against the clock; it also bounds the wait when there is no reason at all.
constexpr int graceTime = 100;

} // namespace

// ---- StopWatch ---------------------------------------------------------------------------------

void StopWatch::run()
{
    sinceRun.start();
}

void StopWatch::halt()
{
    before = milliseconds();
    sinceRun.invalidate();
}

qint64 StopWatch::milliseconds() const
{
    return before + (sinceRun.isValid() ? sinceRun.elapsed() : 0);
}

// ---- Playback ----------------------------------------------------------------------------------

Playback::Playback(std::unique_ptr<Item> what, const QString& token)
    : item(std::move(what)), itemToken(token)
{
    grace.setSingleShot(true);
    connect(&grace, &QTimer::timeout, this, &Playback::giveUpStarting);
}

Playback::~Playback() = default;

void Playback::start(const QString& device, Loop loop)
{
    outputDevice = device;
    loopKind = loop;
    begin();
    if (currentState == State::Playing && !item->notice().isEmpty()) {
        Q_EMIT noticed(item->notice());
    }
    if (item->neverEnds() && loop == Loop::No) {
        QMetaObject::invokeMethod(this, "stop", Qt::QueuedConnection);
    }
}

void Playback::begin()
{
    makePlayer();
    const Advice obstacle = item->obstacle();
    if (!obstacle.reason.isEmpty()) {
        refuse(obstacle.reason, obstacle.hint);
        return;
    }
    requestPlaying();
}

void Playback::makePlayer()
{
    trace.mark(&PipelineTrace::Moments::makingBegins);
    player = item->makePlayer(itemToken, outputDevice);
    trace.mark(&PipelineTrace::Moments::made);
    player->loop = loopKind == Loop::SamePlayer;
    connectPlayer();
}

void Playback::connectPlayer()
{
    connect(player.get(), &SimplePlayer::playbackEnded, this, &Playback::endPass);
    connect(player.get(), &SimplePlayer::playbackStopped, this,
            [this] { finish({Outcome::Kind::Stopped}); });
    connect(player.get(), &SimplePlayer::playbackErrorReported, this,
            [this](const QString& /*token*/, const QString& reason) {
                if (reason == QLatin1String("Failed to push buffer")) {
                    // A DataSimplePlayer reports this in addition to its outcome, which is queued
                    // by now. For a StreamSimplePlayer it is the outcome itself.
                    QMetaObject::invokeMethod(this, "fail", Qt::QueuedConnection,
                                              Q_ARG(QString, reason));
                    return;
                }
                fail(reason);
            });
}

void Playback::requestPlaying()
{
    trace.mark(&PipelineTrace::Moments::startBegins);
    const bool started = startObserved();
    trace.mark(&PipelineTrace::Moments::startEnds);
    if (started) {
        currentState = State::Playing;
        watch.run();
        return;
    }
    // No stop now: it would throw away what GStreamer has to say about the refusal.
    currentState = State::Failing;
    grace.start(graceTime);
}

bool Playback::startObserved()
{
    const PipelineTrace::Scope scope(trace);
    return player->startPlayback();
}

bool Playback::pause()
{
    if (currentState != State::Playing || !player->pausePlayback()) {
        return false; // the player may have failed, with its report on the way
    }
    currentState = State::Paused;
    watch.halt();
    return true;
}

void Playback::resume()
{
    if (currentState == State::Paused) {
        requestPlaying();
    }
}

void Playback::stop()
{
    switch (currentState) {
    case State::Waiting:
        finish({Outcome::Kind::Stopped});
        break;
    case State::Playing:
    case State::Paused:
        currentState = State::Stopping;
        watch.halt();
        player->stopPlayback(); // also when it fails, an outcome follows
        break;
    case State::Turning:
        finish({Outcome::Kind::Stopped});
        break;
    case State::Stopping:
    case State::Failing:
    case State::Finished:
        break;
    }
}

void Playback::endPass()
{
    if (loopKind != Loop::NewPlayer || !item->canBeginAgain() || currentState != State::Playing) {
        finish({Outcome::Kind::Ended});
        return;
    }
    currentState = State::Turning;
    watch.halt();
    connect(player.get(), &QObject::destroyed, this, &Playback::beginNextPass,
            Qt::QueuedConnection);
    releasePlayer();
}

void Playback::beginNextPass()
{
    if (currentState == State::Turning) {
        begin();
    }
}

void Playback::refuse(const QString& reason, const QString& hint)
{
    finish({Outcome::Kind::Error, reason, hint});
}

void Playback::giveUpStarting()
{
    for (const elements::Element& element : elements::needed()) {
        if (!elements::isInstalled(element)) {
            refuse(QString("missing element %1").arg(element.name),
                   QString("apt-get install %1").arg(element.package));
            return;
        }
    }
    const QString reason = item->adviceOnFailedStart().reason;
    fail(reason.isEmpty() ? "cannot be started" : reason);
}

void Playback::fail(const QString& reason)
{
    const Missing missing = trace.missing();
    if (missing.isCause()) {
        finish({Outcome::Kind::Error, missing.reason(), missing.hint()});
    } else {
        finish({Outcome::Kind::Error, reason, hintOnFailure()});
    }
}

QString Playback::hintOnFailure() const
{
    if (currentState != State::Failing) {
        return QString();
    }
    QString hint = item->adviceOnFailedStart().hint;
    if (!hint.isEmpty()) {
        return hint;
    }
    return QString("kova-play --check --device '%1' looks for the cause").arg(outputDevice);
}

void Playback::finish(Outcome outcome)
{
    if (currentState == State::Finished) {
        return; // a refused push beside the outcome
    }
    currentState = State::Finished;
    grace.stop();
    watch.halt();
    trace.mark(&PipelineTrace::Moments::outcome);
    outcome.moments = trace.moments();
    Q_EMIT outcomeKnown(outcome);
    if (!player) {
        QMetaObject::invokeMethod(this, "finished", Qt::QueuedConnection);
        return;
    }
    connect(player.get(), &QObject::destroyed, this, &Playback::finished, Qt::QueuedConnection);
    releasePlayer();
}

void Playback::releasePlayer()
{
    // After its end a player still holds the device. It frees it in its destructor, behind the
    // point where it announces its destruction: a queued call comes after that.
    disconnect(player.get(), &SimplePlayer::playbackEnded, this, nullptr);
    disconnect(player.get(), &SimplePlayer::playbackStopped, this, nullptr);
    disconnect(player.get(), &SimplePlayer::playbackErrorReported, this, nullptr);
    player.release()->deleteLater(); // this may be its own signal that is being handled
}
