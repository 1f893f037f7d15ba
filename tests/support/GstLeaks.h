#ifndef TEST_SUPPORT_GST_LEAKS_H
#define TEST_SUPPORT_GST_LEAKS_H

#include <QtCore/QStringList>

/// The type names of all GStreamer objects (elements, pads, buffers, caps, messages …) that are
/// alive now, sorted, as GStreamer's leak tracer knows them. What GStreamer itself never frees is
/// not among them. The tracer must be on: TestProcess sees to that.
QStringList liveGstObjects();

/// Waits until no object is alive beyond those in `expected`: GStreamer's threads drop their last
/// references a moment after a pipeline is gone. Returns what was still alive in excess at the end.
QStringList leakedGstObjects(const QStringList& expected = QStringList());

#endif
