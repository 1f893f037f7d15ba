#ifndef TEST_SEQUENCES_INERT_ELEMENTS_H
#define TEST_SEQUENCES_INERT_ELEMENTS_H

#include <gst/gst.h>

/// Stand-ins for all elements that the engines make. They link, change state and keep their
/// properties like the real ones, but nothing flows and no thread is started: whatever happens to a
/// player is what the test does. Their own state changes are not posted.
///
/// The appsrc is a real one whose task never begins. It takes whatever is pushed.
namespace inert {

/// Puts the stand-ins behind the factories' names for as long as the process lives. To be called
/// once, after gst_init() without any plug-ins.
void registerFactories();

/// What the stand-ins refuse from now on.
struct Faults
{
    bool seek = false;        ///< the URI source cannot seek
    bool stateChange = false; ///< the sink refuses the next state change; cleared by that
};
extern Faults faults;

/// Has an appsrc refuse what is pushed, as in a pipeline that is flushed, or take it again.
void setFlushing(GstElement* appsrc, bool flushing);

/// Has an appsrc emit its signal "need-data" or "enough-data" on a streaming thread, and waits
/// for that thread.
void emitNeedData(GstElement* appsrc, guint size);
void emitEnoughData(GstElement* appsrc);
void emitSeekData(GstElement* appsrc, guint64 offset);

} // namespace inert

#endif
