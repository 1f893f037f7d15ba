#ifndef TEST_SEQUENCES_PLAYER_FIXTURE_H
#define TEST_SEQUENCES_PLAYER_FIXTURE_H

#include "kit/FifoWriter.h"
#include "kit/GstFaults.h"
#include "kit/Source.h"
#include "sequences/Observation.h"
#include "sequences/Step.h"

#include <memory>
#include <optional>

class SimplePlayerImpl;

/// What all players of this process play, and on which elements.
struct PlayerSettings
{
    bool realElements = false; ///< else inert ones
    QString device = QStringLiteral("device");
    std::optional<Item> item;
};
extern PlayerSettings playerSettings;

/// A player with its engine, pipeline and FIFO, from construction to destruction. Takes the steps
/// and observes it.
class PlayerFixture
{
public:
    explicit PlayerFixture(const Source& source);
    ~PlayerFixture();
    PlayerFixture(const PlayerFixture&) = delete;
    PlayerFixture& operator=(const PlayerFixture&) = delete;

    void take(Step step);

    /// What was observed after the last step, or after the construction.
    Observation seen;

    /// How many outcomes the event loop has delivered.
    int outcomes() const { return outcomesOfLoop; }

private:
    enum class Context
    {
        Call,
        Event,
        Loop,
    };

    void connectSignals();
    void act(Step step);
    void happen(Step event);
    void refusePush();
    bool call(bool (SimplePlayer::*function)(), GstState wanted);
    GstElement* pipeline() const;
    GstElement* element(const char* name) const;
    void post(GstMessage* message) const;
    void postFromSink(Step step) const;
    bool busHasMessages() const;
    void runLoop();
    void emitted(const QString& outcome);
    void observe();
    Observation::Reader reader() const;

    const Source& source;
    std::unique_ptr<SimplePlayer> player;
    SimplePlayerImpl* engine; ///< after its destruction the user data of its bus watch
    std::optional<MissingFactory> missing;
    std::optional<FifoWriter> writer;
    bool stateRefused = false;
    bool stopsInSlot = false;
    Context context = Context::Event;
    int outcomesOfLoop = 0;
};

#endif
