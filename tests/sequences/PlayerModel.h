#ifndef TEST_SEQUENCES_PLAYER_MODEL_H
#define TEST_SEQUENCES_PLAYER_MODEL_H

#include "sequences/Observation.h"
#include "sequences/Step.h"

#include <deque>

/// What a player must do, without GStreamer, Qt's event loop or a pipe: the states of its engine,
/// its pipeline and its reader, and what each step makes of them. The token is "T".
///
/// A value: a copy goes its own way from there.
class PlayerModel
{
public:
    /// A player that was just made.
    /// @param itemPath  the file, or the named pipe, that it plays
    PlayerModel(Source source, const QString& itemPath);

    /// Whether a step can happen now.
    bool possible(Step step) const;
    void take(Step step);

    /// What must be seen after the last step, or after the construction.
    Observation seen;

    /// How many bytes a block of the stream, a request of the appsrc and the array have.
    static constexpr int blockSize = 600;
    static constexpr int requestSize = 4;
    static constexpr int arraySize = 10;

    static constexpr const char* errorText = "device lost";

private:
    struct Message
    {
        Step kind; ///< PipelineState, EndOfStream, Error, NamelessError, or Warning for the rest
        GstState oldState = GST_STATE_VOID_PENDING;
        GstState newState = GST_STATE_VOID_PENDING;
        GstState pending = GST_STATE_VOID_PENDING;
    };

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
    bool initPipeline();
    bool request(GstState wanted);
    bool live();
    void release();
    bool restart();
    void post(const Message& message);
    void handle(const Message& message);
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

    void log(const QString& line) { seen.log.append(line); }
    void enter(const char* level, const char* function,
               const QString& details = QStringLiteral("token: T"));
    void leave(const char* level, const char* function,
               const QString& details = QStringLiteral("token: T"));

    Source source;
    bool loop = false;
    bool stopsInSlot = false;
    bool seekRefused = false;
    bool pluginMissing = false;
    bool stateRefused = false;

    GstState state = GST_STATE_NULL; ///< of the pipeline
    bool busOpen = false;            ///< a bus drops everything while its pipeline is in NULL
    bool clockChosen = false;
    std::deque<Message> bus;
    std::deque<Call> calls; ///< queued in Qt's event loop

    bool pushRefused = false; ///< by the appsrc
    int queued = 0;           ///< bytes in the appsrc of a stream
    int unread = 0;           ///< bytes in the pipe
    bool writerGone = false;
    bool polled = false;       ///< this pass of the event loop has found the pipe readable
    int arrayLeft = arraySize; ///< size of the array
    int offset = 0;
};

#endif
