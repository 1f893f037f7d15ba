#include "support/GstLeaks.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QThread>

#define GST_USE_UNSTABLE_API
#include <gst/gst.h>
#include <gst/gsttracer.h>

static GstTracer* leaksTracer()
{
    GList* tracers = gst_tracing_get_active_tracers();
    GstTracer* found = nullptr;
    for (GList* i = tracers; i; i = i->next) {
        if (g_signal_lookup("get-live-objects", G_OBJECT_TYPE(i->data)) != 0) {
            found = GST_TRACER(gst_object_ref(i->data));
        }
    }
    g_list_free_full(tracers, gst_object_unref);
    return found;
}

QStringList liveGstObjects()
{
    GstTracer* tracer = leaksTracer();
    if (!tracer) {
        qFatal("GStreamer's leak tracer is not running");
    }
    GstStructure* live = nullptr;
    g_signal_emit_by_name(tracer, "get-live-objects", &live);
    gst_object_unref(tracer);

    QStringList names;
    const GValue* list = gst_structure_get_value(live, "live-objects-list");
    for (guint i = 0; i < gst_value_list_get_size(list); ++i) {
        const GstStructure* entry = gst_value_get_structure(gst_value_list_get_value(list, i));
        const GValue* object = gst_structure_get_value(entry, "object");
        names.append(QString::fromUtf8(G_VALUE_TYPE_NAME(object)));
    }
    gst_structure_free(live);
    names.sort();
    return names;
}

QStringList leakedGstObjects(const QStringList& expected)
{
    QStringList leaked;
    QDeadlineTimer deadline(10000);
    do {
        leaked = liveGstObjects();
        for (const QString& name : expected) {
            leaked.removeOne(name);
        }
        if (leaked.isEmpty()) {
            break;
        }
        QThread::msleep(1);
    } while (!deadline.hasExpired());
    return leaked;
}
