#ifndef KOVA_PLAY_FLOW_H
#define KOVA_PLAY_FLOW_H

#include <QtCore/QElapsedTimer>

#include <gst/gst.h>

/// Whether sound really comes out of the players of this process. It looks at the last sound sink
/// that was made, as all players have one. At most one object of this class exists.
class Flow
{
public:
    enum class State
    {
        Running,
        NoData,  ///< the sink waits for samples
        Stalled, ///< the sink has samples which the card does not take
    };

    /// Watches the sinks that are made from now on.
    Flow();
    ~Flow();
    Flow(const Flow&) = delete;
    Flow& operator=(const Flow&) = delete;

    /// The state now. To be called a few times in a second while something is meant to play.
    State look();
    /// To be called in place of look() while nothing is meant to play.
    void hold();
    /// For how long nothing came out although it was meant to, in milliseconds, since the sink was
    /// made.
    qint64 idle() const;

private:
    static gboolean noteElement(GSignalInvocationHint* hint, guint count, const GValue* values,
                                gpointer flow);

    bool standsStill() const;

    GWeakRef sink = {};
    guint addedSignal;
    gulong hook;
    const GstElement* seenSink = nullptr; ///< compared, never used
    int seenSegments = 0;                 ///< that the card had taken, when samples last moved
    int seenBuffers = 0;
    QElapsedTimer sinceMove;
    qint64 idleBefore = 0;
};

#endif
