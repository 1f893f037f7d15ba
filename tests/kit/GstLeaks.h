#ifndef KIT_GST_LEAKS_H
#define KIT_GST_LEAKS_H

#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <gst/gst.h>

#include <functional>

/// Initializes GStreamer and tracks its live objects (elements, pads, buffers, caps, messages …)
/// from now on. KOVA_TEST_MAIN calls it.
///
/// GStreamer's own "leaks" tracer returns references to objects that another thread may be
/// finalizing. This tracer takes no references.
void trackGstObjects();

/// Returns the sorted type names of all live objects, except those that GStreamer keeps for the
/// lifetime of the process (pad templates, factories, type finders …).
QStringList liveGstObjects();

/// Returns how many GstObjects were created since trackGstObjects(), including destroyed ones.
long createdGstObjects();

/// Returns all live buffers, without references for the caller.
QVector<GstBuffer*> liveGstBuffers();

/// Calls a function before each state change of any element, on the thread that requests it, during
/// the lifetime of this object. There is at most one such object.
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

/// Waits until no object is alive, because GStreamer's threads drop their last references some time
/// after the release of a pipeline. Returns the objects that are still alive, as "3 GstCaps, 1
/// GstPad", or an empty text. Later calls ignore them, so that each leak fails only the test that
/// caused it.
QString leakedGstObjects();

/// Makes leakedGstObjects() ignore one object, which GStreamer itself does not always free.
void overlookLeakedGstObject(const QString& type);

/// Frees elements without an owner, which remain after a failed build. Do not call it while another
/// thread may create an element, which would be freed as well.
/// Returns their sorted type names.
QStringList freeAbandonedGstElements();

#endif
