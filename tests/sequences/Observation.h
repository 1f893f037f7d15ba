#ifndef TEST_SEQUENCES_OBSERVATION_H
#define TEST_SEQUENCES_OBSERVATION_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <gst/gst.h>

/// What can be seen of a player after a step: the model's is what must be, the player's what is.
struct Observation
{
    enum class Reader
    {
        None, ///< not a stream player
        Reading,
        Held,
        Ended,
    };

    int result = -1;            ///< of a call: 0 or 1, of anything else -1
    QStringList log;            ///< "LEVEL text" of this step
    QStringList signalsEmitted; ///< of this step

    bool alive = true;
    bool pipeline = false;
    bool watched = false; ///< whether the engine watches a bus
    bool initialized = false;
    bool endReported = false;
    GstState requested = GST_STATE_VOID_PENDING; ///< of the pipeline
    Reader reader = Reader::None;

    /// Forgets what belongs to one step.
    void beginStep()
    {
        result = -1;
        log.clear();
        signalsEmitted.clear();
    }

    bool operator==(const Observation& other) const
    {
        return state() == other.state() && result == other.result && log == other.log &&
               signalsEmitted == other.signalsEmitted;
    }

    /// What is seen without the log lines that depend on the pace of GStreamer's threads.
    Observation atAnyPace() const;

    /// One line for each thing that can be seen.
    QStringList text() const;

private:
    /// What outlives the step, packed.
    quint64 state() const
    {
        return quint64(alive) | quint64(pipeline) << 1 | quint64(watched) << 2 |
               quint64(initialized) << 3 | quint64(endReported) << 4 | quint64(requested) << 8 |
               quint64(reader) << 16;
    }
};

#endif
