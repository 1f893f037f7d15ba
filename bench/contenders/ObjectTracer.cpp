#define GST_USE_UNSTABLE_API // the hooks of tracers
#include "ObjectTracer.h"

#include <gst/gsttracer.h>

#include <atomic>
#include <mutex>

// ---- A tracer that exists for its hooks alone -------------------------------------------------

namespace {

struct BenchTracer
{
    GstTracer parent;
};

struct BenchTracerClass
{
    GstTracerClass parent;
};

std::function<void(GstPad*, GstBuffer*)> receiver; ///< guarded by receiverMutex
std::mutex receiverMutex;
std::atomic<long> made{0};
std::atomic<long> gone{0};

} // namespace

G_DEFINE_TYPE(BenchTracer, bench_tracer, GST_TYPE_TRACER)

static void bench_tracer_class_init(BenchTracerClass* /*klass*/)
{
}

static void bench_tracer_init(BenchTracer* /*self*/)
{
}

static GstTracer* tracer()
{
    static auto* const only =
        static_cast<GstTracer*>(g_object_new(bench_tracer_get_type(), nullptr));
    return only;
}

// ---- Hooks ------------------------------------------------------------------------------------

static void pulledHook(GObject* /*self*/, GstClockTime /*when*/, GstPad* pad, GstBuffer* buffer,
                       GstFlowReturn flow)
{
    if (flow != GST_FLOW_OK) {
        return;
    }
    if (GstPad* source = gst_pad_get_peer(pad)) {
        const std::lock_guard<std::mutex> guard(receiverMutex);
        receiver(source, buffer);
        gst_object_unref(source);
    }
}

static void madeHook(GObject* /*self*/, GstClockTime /*when*/, GstObject* /*object*/)
{
    ++made;
}

static void goneHook(GObject* /*self*/, GstClockTime /*when*/, GstObject* /*object*/)
{
    ++gone;
}

void watchPulledBuffers(std::function<void(GstPad*, GstBuffer*)> pulled)
{
    receiver = std::move(pulled);
    gst_tracing_register_hook(tracer(), "pad-pull-range-post", G_CALLBACK(pulledHook));
}

void countObjects()
{
    gst_tracing_register_hook(tracer(), "object-created", G_CALLBACK(madeHook));
    gst_tracing_register_hook(tracer(), "object-destroyed", G_CALLBACK(goneHook));
}

long objectsMade()
{
    return made;
}

long objectsAlive()
{
    return made - gone;
}
