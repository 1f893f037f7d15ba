#ifndef TEST_SEQUENCES_STAGE_H
#define TEST_SEQUENCES_STAGE_H

#include "kit/GstFaults.h"
#include "kit/LogCapture.h"
#include "sequences/Observation.h"
#include "sequences/Step.h"

#include <simplePlayer/SimplePlayerInterface.h>

#include <memory>
#include <optional>

class SimplePlayerImpl;

/// What the players of this process are made of.
struct Scenery
{
    bool realElements = false; ///< else inert ones
    QString device = QStringLiteral("device");
    QByteArray item; ///< in memory
};
extern Scenery scenery;

/// One real player with its real engine and pipe, from its construction to its end. Takes the steps
/// and tells what can be seen of it.
class Stage
{
public:
    explicit Stage(Source source);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    void take(Step step);

    /// What was seen after the last step, or after the construction.
    Observation seen;

    /// The file or the named pipe that the player plays.
    static QString itemPath(Source source);

    /// How many outcomes the event loop has brought.
    int outcomes() const { return outcomesOfLoop; }

private:
    enum class Context
    {
        Call,
        Event,
        Loop,
    };

    void makePlayer();
    void connectSignals();
    void act(Step step);
    void happen(Step event);
    bool call(bool (SimplePlayer::*function)(), GstState wanted);
    void post(GstMessage* message) const;
    void postFromSink(Step step) const;
    bool busHasMessages() const;
    void runLoop();
    void emitted(const QString& outcome);
    void look();
    Observation::Reader reader() const;
    QString withoutNumbers(QString line) const;

    const Source source;
    LogCapture log;
    std::unique_ptr<SimplePlayer> player;
    SimplePlayerImpl* engine = nullptr; ///< also when it is gone, to look for its watch
    std::optional<MissingFactory> missing;
    int writer = -1;
    QString activation; ///< what a line about the notifier of this pipe contains
    bool stateRefused = false;
    bool stopsInSlot = false;
    Context context = Context::Event;
    int outcomesOfLoop = 0;
};

#endif
