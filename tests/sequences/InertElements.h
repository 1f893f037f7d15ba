#ifndef TEST_SEQUENCES_INERT_ELEMENTS_H
#define TEST_SEQUENCES_INERT_ELEMENTS_H

#include <gst/gst.h>

/// Replacements of all elements that the engines make. They link, change state and have the
/// properties of the real ones, but no data flows and no thread is started: only the test acts on a
/// player. Their own state changes are not posted.
///
/// The appsrc is a real one whose task never starts. It accepts and keeps what is pushed.
namespace inert {

/// Makes the factories of these elements return the replacements. Called once, after gst_init()
/// without any plug-ins.
void registerFactories();

/// What the replacements refuse from now on.
struct Faults
{
    bool seek = false;        ///< the URI source cannot seek
    bool stateChange = false; ///< the sink refuses the next state change; cleared by that
};
extern Faults faults;

/// How many seek events the replacements have received.
extern int seeks;

/// The bytes that were pushed into an appsrc, which keeps them.
int bytesIn(GstElement* appsrc);

/// Has an appsrc refuse what is pushed, as in a pipeline that is flushed, or take it again.
void setFlushing(GstElement* appsrc, bool flushing);

/// Has an appsrc emit its signal "need-data" or "enough-data" on a streaming thread, and waits
/// for that thread.
void emitNeedData(GstElement* appsrc, guint size);
void emitEnoughData(GstElement* appsrc);
void emitSeekData(GstElement* appsrc, guint64 offset);

} // namespace inert

#endif
