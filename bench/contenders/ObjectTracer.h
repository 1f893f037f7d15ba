#ifndef BENCH_OBJECT_TRACER_H
#define BENCH_OBJECT_TRACER_H

#include <functional>

#include <gst/gst.h>

/// Looks into GStreamer while it plays. From now on `pulled` is called for each buffer that any pad
/// pulls from another, on streaming threads, one at a time.
void watchPulledBuffers(std::function<void(GstPad* source, GstBuffer* buffer)> pulled);

/// From now on objects of GStreamer are counted as they are made.
void countObjects();
long objectsMade();
long objectsAlive();

#endif
