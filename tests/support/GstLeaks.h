#ifndef TEST_SUPPORT_GST_LEAKS_H
#define TEST_SUPPORT_GST_LEAKS_H

#include <QtCore/QStringList>

/// Initialises GStreamer and notes from now on which of its objects (elements, pads, buffers, caps,
/// messages …) live. KOVA_TEST_MAIN calls it.
///
/// GStreamer's own "leaks" tracer does the same, but hands out references to objects that another
/// thread may be finalising at that moment; this one only ever looks.
void trackGstObjects();

/// The type names of all objects alive now, sorted, without those that GStreamer itself marks as
/// living as long as the process (pad templates, factories …).
QStringList liveGstObjects();

/// Waits until no object is alive beyond those in `expected`: GStreamer's threads drop their last
/// references a moment after a pipeline is gone. Returns what was still alive in excess at the end;
/// the calls that follow overlook it, so that each leak fails the one test that caused it.
QStringList leakedGstObjects(const QStringList& expected = QStringList());

/// Frees the elements that were made but that nobody ever took over, as a failed build leaves them.
/// Not to be called while another thread may be making one: it would be freed, too.
/// Returns their type names, sorted.
QStringList freeAbandonedGstElements();

#endif
