#ifndef TEST_SEQUENCES_OBSERVATION_H
#define TEST_SEQUENCES_OBSERVATION_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <gst/gst.h>

/// The state of a player after a step: that of the model is expected, that of the player actual.
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
    QStringList signalsEmitted; ///< of this step

    bool alive = true;
    bool pipeline = false;
    bool watched = false; ///< whether the engine watches a bus
    bool initialized = false;
    bool endReported = false;
    GstState requested = GST_STATE_VOID_PENDING; ///< of the pipeline
    Reader reader = Reader::None;
    int pushed = 0; ///< bytes in the appsrc, which keeps them all
    int seeks = 0;  ///< events that the inert source has received

    /// Forgets what belongs to one step.
    void beginStep()
    {
        result = -1;
        signalsEmitted.clear();
    }

    bool operator==(const Observation& other) const
    {
        return state() == other.state() && result == other.result && pushed == other.pushed &&
               seeks == other.seeks && signalsEmitted == other.signalsEmitted;
    }

    /// Without what depends on the threads of real elements.
    Observation withoutStreaming() const
    {
        Observation copy = *this;
        copy.pushed = copy.seeks = 0;
        return copy;
    }

    /// One line for each member.
    QStringList text() const;

private:
    /// The members that do not belong to one step, packed.
    quint64 state() const
    {
        return quint64(alive) | quint64(pipeline) << 1 | quint64(watched) << 2 |
               quint64(initialized) << 3 | quint64(endReported) << 4 | quint64(requested) << 8 |
               quint64(reader) << 16;
    }
};

#endif
