#include "support/GstLeaks.h"
#include "support/Waiting.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QThread>

#define GST_USE_UNSTABLE_API
#include <gst/gst.h>
#include <gst/gsttracer.h>

#include <mutex>
#include <unordered_set>
#include <vector>

namespace {

/// All objects alive. The hooks below run on any thread, the "destroyed" ones before the memory is
/// freed: whoever holds the mutex may read every object in the sets.
struct LiveObjects
{
    std::mutex mutex;
    std::unordered_set<GstObject*> objects;
    std::unordered_set<GstMiniObject*> miniObjects;
};

LiveObjects& live()
{
    static auto* const instance = new LiveObjects; // outlives all threads
    return *instance;
}

void objectCreated(GObject*, GstClockTime, GstObject* object)
{
    const std::lock_guard<std::mutex> lock(live().mutex);
    live().objects.insert(object);
}

void objectDestroyed(GObject*, GstClockTime, GstObject* object)
{
    const std::lock_guard<std::mutex> lock(live().mutex);
    live().objects.erase(object);
}

void miniObjectCreated(GObject*, GstClockTime, GstMiniObject* object)
{
    const std::lock_guard<std::mutex> lock(live().mutex);
    live().miniObjects.insert(object);
}

void miniObjectDestroyed(GObject*, GstClockTime, GstMiniObject* object)
{
    const std::lock_guard<std::mutex> lock(live().mutex);
    live().miniObjects.erase(object);
}

struct ObjectTracer
{
    GstTracer parent;
};

struct ObjectTracerClass
{
    GstTracerClass parent;
};

G_DEFINE_TYPE(ObjectTracer, object_tracer, GST_TYPE_TRACER)

void object_tracer_class_init(ObjectTracerClass*)
{
}

void object_tracer_init(ObjectTracer*)
{
}

} // namespace

void trackGstObjects()
{
    gst_init(nullptr, nullptr);
    auto* tracer = static_cast<GstTracer*>(g_object_new(object_tracer_get_type(), nullptr));
    gst_tracing_register_hook(tracer, "object-created", G_CALLBACK(objectCreated));
    gst_tracing_register_hook(tracer, "object-destroyed", G_CALLBACK(objectDestroyed));
    gst_tracing_register_hook(tracer, "mini-object-created", G_CALLBACK(miniObjectCreated));
    gst_tracing_register_hook(tracer, "mini-object-destroyed", G_CALLBACK(miniObjectDestroyed));
    gst_object_unref(tracer); // the hooks hold it
}

QStringList liveGstObjects()
{
    QStringList names;
    const std::lock_guard<std::mutex> lock(live().mutex);
    for (GstObject* object : live().objects) {
        if (!GST_OBJECT_FLAG_IS_SET(object, GST_OBJECT_FLAG_MAY_BE_LEAKED)) {
            names.append(QString::fromUtf8(G_OBJECT_TYPE_NAME(object)));
        }
    }
    for (GstMiniObject* object : live().miniObjects) {
        if (!GST_MINI_OBJECT_FLAG_IS_SET(object, GST_MINI_OBJECT_FLAG_MAY_BE_LEAKED)) {
            names.append(QString::fromUtf8(g_type_name(GST_MINI_OBJECT_TYPE(object))));
        }
    }
    names.sort();
    return names;
}

QStringList leakedGstObjects(const QStringList& expected)
{
    static QStringList alreadyReported;
    QStringList leaked;
    // Once the program has failed, its further leaks need not be told from slow threads.
    const QDeadlineTimer deadline(alreadyReported.isEmpty() ? patience : 1000);
    do {
        leaked = liveGstObjects();
        for (const QString& name : expected + alreadyReported) {
            leaked.removeOne(name);
        }
        if (leaked.isEmpty()) {
            break;
        }
        QThread::msleep(1);
    } while (!deadline.hasExpired());
    alreadyReported += leaked;
    return leaked;
}

QStringList freeAbandonedGstElements()
{
    std::vector<GstObject*> abandoned;
    {
        const std::lock_guard<std::mutex> lock(live().mutex);
        for (GstObject* object : live().objects) {
            if (GST_IS_ELEMENT(object) && g_object_is_floating(object)) {
                abandoned.push_back(object);
            }
        }
    }
    QStringList names;
    for (GstObject* object : abandoned) {
        names.append(QString::fromUtf8(G_OBJECT_TYPE_NAME(object)));
        gst_object_unref(object);
    }
    names.sort();
    return names;
}
