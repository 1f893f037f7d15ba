#ifndef KIT_GST_LEAKS_H
#define KIT_GST_LEAKS_H

#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <gst/gst.h>

#include <functional>

/// Initialises GStreamer and notes from now on which of its objects (elements, pads, buffers, caps,
/// messages …) live. KOVA_TEST_MAIN calls it.
///
/// GStreamer's own "leaks" tracer does the same, but hands out references to objects that another
/// thread may be finalising at that moment; this one only ever looks.
void trackGstObjects();

/// The type names of all objects alive now, sorted, without those that GStreamer keeps as long as
/// the process lives (pad templates, factories, type finders …).
QStringList liveGstObjects();

/// How many GstObjects were created since trackGstObjects(), those destroyed since included.
long createdGstObjects();

/// All buffers alive now, without references of the caller's own.
QVector<GstBuffer*> liveGstBuffers();

/// Calls a function before each state change of any element, on the thread that requests it, while
/// this object lives. One at a time.
class StateChangeObserver
{
public:
    using Function = std::function<void(GstElement* element, GstStateChange change)>;

    explicit StateChangeObserver(const Function& function);
    ~StateChangeObserver();
    StateChangeObserver(const StateChangeObserver&) = delete;
    StateChangeObserver& operator=(const StateChangeObserver&) = delete;

private:
    const Function callback;
};

/// Waits until no object is alive: GStreamer's threads drop their last references a moment after a
/// pipeline is gone. Returns what was still alive at the end, as "3 GstCaps, 1 GstPad", empty for
/// nothing; the calls that follow overlook it, so that each leak fails the one test that caused it.
QString leakedGstObjects();

/// Has leakedGstObjects() overlook one object, which GStreamer itself does not always free.
void overlookLeakedGstObject(const QString& type);

/// Frees the elements that were made but that nobody ever took over, as a failed build leaves them.
/// Not to be called while another thread may be making one: it would be freed, too.
/// Returns their type names, sorted.
QStringList freeAbandonedGstElements();

#endif
