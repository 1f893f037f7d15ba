#ifndef KOVA_PLAY_PLAYBACK_H
#define KOVA_PLAY_PLAYBACK_H

#include "Item.h"
#include "Tracing.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

#include <memory>

/// How the playback of an item came out.
struct Outcome
{
    enum class Kind
    {
        Ended,
        Stopped,
        Error,
    };

    Kind kind = Kind::Stopped;
    QString reason = QString();          ///< of an error
    QString hint = QString();            ///< what to do about an error; may be empty
    PipelineTrace::Moments moments = {}; ///< when what was done
};

/// The time that something was running, pauses left out.
class StopWatch
{
public:
    void run();
    void halt();
    qint64 milliseconds() const;

private:
    QElapsedTimer sinceRun; ///< valid while running; monotonic
    qint64 before = 0;
};

/// What follows the end of an item.
enum class Loop
{
    No,         ///< the outcome
    SamePlayer, ///< its player begins again
    NewPlayer,  ///< another player plays it
};

/// One item on its way from the first start to its outcome. Exactly one outcome is reported,
/// whatever the player does or fails to do.
class Playback : public QObject
{
    Q_OBJECT

public:
    enum class State
    {
        Waiting,  ///< not begun
        Playing,  ///< started, and the outcome is to come
        Paused,   ///< halted by pause()
        Stopping, ///< stopped, and the outcome is to come
        Turning,  ///< a pass is over, and the player of the next one is to come
        Failing,  ///< the start was refused, and the player is given a moment to say why
        Finished, ///< the outcome was reported
    };

    /// @param what   the item to play
    /// @param token  what the outcome is reported under
    Playback(std::unique_ptr<Item> what, const QString& token);
    ~Playback() override;

    /// Makes the player and starts it.
    /// @param device  the ALSA device to play on
    void start(const QString& device, Loop loop);
    /// Halts a playback that is running. @return false when the player refuses
    bool pause();
    /// Goes on after pause().
    void resume();
    /// Ends the playback. One that was not begun has the outcome "stopped" at once.
    Q_INVOKABLE void stop();
    /// Ends a playback that was not begun with an error.
    void refuse(const QString& reason, const QString& hint);

    State state() const { return currentState; }
    QString token() const { return itemToken; }
    QString name() const { return item->name(); }
    /// How long the item has been playing, in milliseconds, pauses left out.
    qint64 elapsed() const { return watch.milliseconds(); }

Q_SIGNALS:
    /// The item was started, and the user should know this. Emitted at most once.
    void noticed(const QString& notice);
    /// The outcome is known. Emitted once; the device may still be in use.
    void outcomeKnown(const Outcome& outcome);
    /// The player is gone, and the device is free. Emitted once, from the event loop.
    void finished();

private:
    void makePlayer();
    void connectPlayer();
    void begin();
    void releasePlayer();
    void endPass();
    void beginNextPass();
    void requestPlaying();
    bool startObserved();
    void giveUpStarting();
    Q_INVOKABLE void fail(const QString& reason);
    QString hintOnFailure() const;
    void finish(Outcome outcome);

    std::unique_ptr<Item> item;
    QString itemToken;
    QString outputDevice;
    Loop loopKind = Loop::No;
    std::unique_ptr<SimplePlayer> player; ///< from start() to the outcome
    PipelineTrace trace;                  ///< of what the player does
    QTimer grace;                         ///< bounds State::Failing
    State currentState = State::Waiting;
    StopWatch watch;
};

#endif
