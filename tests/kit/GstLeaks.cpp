#include "kit/GstLeaks.h"
#include "kit/Waiting.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QThread>

#define GST_USE_UNSTABLE_API
#include <gst/gst.h>
#include <gst/gsttracer.h>

#include <atomic>
#include <mutex>
#include <unordered_set>
#include <vector>

namespace {

/// All live objects. The hooks below run on any thread, the "destroyed" hooks before the memory is
/// freed. Every object in the sets can be read while the mutex is held.
struct LiveObjects
{
    std::mutex mutex;
    std::unordered_set<GstObject*> objects;
    std::unordered_set<GstMiniObject*> miniObjects;
    long created = 0; ///< GstObjects, including those destroyed since
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
    ++live().created;
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

std::atomic<const StateChangeObserver::Function*> stateChangeObserver{nullptr};

void stateChanges(GObject*, GstClockTime, GstElement* element, GstStateChange change)
{
    if (const StateChangeObserver::Function* function = stateChangeObserver) {
        (*function)(element, change);
    }
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

/// GStreamer loads them when the first pipeline inspects its data, and keeps them and their caps
/// for the lifetime of the process.
static void loadTypeFinders()
{
    GList* finders = gst_type_find_factory_get_list();
    for (GList* i = finders; i; i = i->next) {
        if (GstPluginFeature* loaded = gst_plugin_feature_load(GST_PLUGIN_FEATURE(i->data))) {
            gst_object_unref(loaded);
        }
    }
    gst_plugin_feature_list_free(finders);
}

void trackGstObjects()
{
    gst_init(nullptr, nullptr);
    loadTypeFinders(); // before tracking begins, because they are no leaks
    auto* tracer = static_cast<GstTracer*>(g_object_new(object_tracer_get_type(), nullptr));
    gst_tracing_register_hook(tracer, "object-created", G_CALLBACK(objectCreated));
    gst_tracing_register_hook(tracer, "object-destroyed", G_CALLBACK(objectDestroyed));
    gst_tracing_register_hook(tracer, "mini-object-created", G_CALLBACK(miniObjectCreated));
    gst_tracing_register_hook(tracer, "mini-object-destroyed", G_CALLBACK(miniObjectDestroyed));
    gst_tracing_register_hook(tracer, "element-change-state-pre", G_CALLBACK(stateChanges));
    gst_object_unref(tracer); // the hooks keep a reference
}

StateChangeObserver::StateChangeObserver(const Function& function) : callback(function)
{
    stateChangeObserver = &callback;
}

StateChangeObserver::~StateChangeObserver()
{
    stateChangeObserver = nullptr;
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

long createdGstObjects()
{
    const std::lock_guard<std::mutex> lock(live().mutex);
    return live().created;
}

QVector<GstBuffer*> liveGstBuffers()
{
    QVector<GstBuffer*> buffers;
    const std::lock_guard<std::mutex> lock(live().mutex);
    for (GstMiniObject* object : live().miniObjects) {
        if (GST_IS_BUFFER(object)) {
            buffers.append(GST_BUFFER_CAST(object));
        }
    }
    return buffers;
}

/// "3 GstCaps, 1 GstPad" of a sorted list of names.
static QString counted(const QStringList& names)
{
    QStringList counts;
    for (int first = 0; first < names.size();) {
        const int behind = names.lastIndexOf(names.at(first)) + 1;
        counts.append(QString::number(behind - first) + QLatin1Char(' ') + names.at(first));
        first = behind;
    }
    return counts.join(QStringLiteral(", "));
}

static QStringList overlooked;

void overlookLeakedGstObject(const QString& type)
{
    overlooked.append(type);
}

/// Whether these are a pad that a decoder was about to announce when its pipeline was shut down,
/// and the proxy inside it.
static bool isDecodedPad(const QStringList& leaked)
{
    return leaked == QStringList{"GstDecodePad", "GstProxyPad"};
}

/// Whether these are an Ogg stream whose headers a demuxer was reading when its pipeline was shut
/// down, and the data it had read.
static bool isOggStream(QStringList leaked)
{
    for (const char* held : {"GstBuffer", "GstCaps", "GstMemory", "GstTagList"}) {
        leaked.removeAll(held);
    }
    return leaked == QStringList("GstOggPad");
}

/// Whether this is the task of an element that a decoder shut down from the task's own thread, when
/// its pipeline was shut down: GStreamer warns that joining it "would deadlock", and leaks it. The
/// library changes states on the client's thread only.
static bool isUnjoinedTask(const QStringList& leaked)
{
    return leaked == QStringList("GstTask");
}

/// Whether the remaining objects are a leak of GStreamer itself, which happens once in some
/// thousand playbacks or less, so that a process hardly ever has two of them.
static bool isLostByGStreamer(const QStringList& leaked)
{
    static int left = 4;
    return (isDecodedPad(leaked) || isOggStream(leaked) || isUnjoinedTask(leaked)) && left-- > 0;
}

QString leakedGstObjects()
{
    static bool failed = false;
    QStringList leaked;
    // After a failure there is no need to distinguish further leaks from slow threads.
    const QDeadlineTimer deadline(failed ? 1000 : patience);
    const QDeadlineTimer untilLost(5000);
    do {
        leaked = liveGstObjects();
        for (const QString& name : overlooked) {
            leaked.removeOne(name);
        }
        if (leaked.isEmpty()) {
            break;
        }
        if (untilLost.hasExpired() && isLostByGStreamer(leaked)) {
            qInfo("GStreamer has lost %s", qPrintable(counted(leaked)));
            overlooked += leaked;
            return QString();
        }
        QThread::msleep(1);
    } while (!deadline.hasExpired());
    overlooked += leaked;
    failed = failed || !leaked.isEmpty();
    return counted(leaked);
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
