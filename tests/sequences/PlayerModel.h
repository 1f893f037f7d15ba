#ifndef TEST_SEQUENCES_PLAYER_MODEL_H
#define TEST_SEQUENCES_PLAYER_MODEL_H

#include "sequences/Observation.h"
#include "sequences/Step.h"

#include <deque>

/// The expected behaviour of a player, without GStreamer, Qt's event loop or a FIFO: the states of
/// its engine, its pipeline and its reader, and how each step changes them. The token is "T".
///
/// A value: copies are independent.
class PlayerModel
{
public:
    /// A player that was just made.
    explicit PlayerModel(const Source& source);

    /// Whether a step can happen now.
    bool possible(Step step) const;
    void take(Step step);

    /// What is expected after the last step, or after the construction.
    Observation seen;

    /// The bytes of a block that a writer writes, of a request of the appsrc, and of the array.
    static constexpr int blockSize = 600;
    static constexpr int requestSize = 4;
    static constexpr int arraySize = 10;

    static constexpr const char* errorText = "device lost";

private:
    struct Call
    {
        enum
        {
            Report,
            Receive
        } slot;
        bool flag; ///< stop, or enable
        QString reason;
    };

    bool start();
    bool pause();
    bool stop();
    bool stopPlayer();
    void destroy();
    bool setUp();
    bool request(GstState wanted);
    bool isInitialized() const;
    void release();
    void fail(const QString& reason);
    bool restart();
    void post(Step message);
    void handle(Step message);
    void report(bool stopped, const QString& reason);
    void deliver(const Call& call);
    void emitSignal(const QString& signal);
    void runLoop();

    bool readable() const;
    void readerActivated();
    void pushBlock(int size);
    void receiveNewData(bool enable);
    void closeReader();
    void feed(bool refused);

    const Source* source;
    bool loop = false;
    bool stopsInSlot = false;
    bool seekRefused = false;
    bool pluginMissing = false;
    bool stateRefused = false;

    GstState state = GST_STATE_NULL; ///< of the pipeline
    bool busOpen = false;            ///< a bus drops everything while its pipeline is in NULL
    bool clockChosen = false;
    std::deque<Step> bus;
    std::deque<Call> calls; ///< queued in Qt's event loop

    bool pushRefused = false; ///< by the appsrc
    int unread = 0;           ///< bytes in the FIFO
    bool writerGone = false;
    bool polled = false;       ///< this pass of the event loop has found the FIFO readable
    int arrayLeft = arraySize; ///< size of the array
    int offset = 0;            ///< in the array
};

#endif
