#ifndef UNIT_DATA_FIXTURE_H
#define UNIT_DATA_FIXTURE_H

#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/LogCapture.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <gst/app/gstappsrc.h>

#include <memory>
#include <vector>

/// A front object and an open engine for it. The front object's own engine stays unused.
struct DataFixture
{
    explicit DataFixture(const QByteArray& bytes, const QString& device = QStringLiteral("null"))
        : front("unused", QStringLiteral("front"), QString()),
          engine(new OpenDataEngine(bytes, QStringLiteral("T"), device, &front))
    {
        log.clear();
    }

    /// Builds the pipeline, which stays in NULL: an appsrc that was never started takes all.
    bool build()
    {
        const bool built = engine->setupGstPipeline();
        log.clear();
        return built;
    }

    /// Asks as the appsrc does.
    void need(guint length) const { g_signal_emit_by_name(engine->appsrc, "need-data", length); }

    gboolean seek(guint64 position) const
    {
        gboolean accepted = FALSE;
        g_signal_emit_by_name(engine->appsrc, "seek-data", position, &accepted);
        return accepted;
    }

    LogCapture log;
    DataSimplePlayer front;
    std::unique_ptr<OpenDataEngine> engine;
};

/// Keeps every buffer that any appsrc is given while this object exists, like a slow element.
class Pushed
{
public:
    Pushed()
        : signal(g_signal_lookup("push-buffer", GST_TYPE_APP_SRC)),
          hook(g_signal_add_emission_hook(signal, 0, keep, this, nullptr))
    {
    }

    ~Pushed()
    {
        g_signal_remove_emission_hook(signal, hook);
        for (GstBuffer* buffer : buffers) {
            gst_buffer_unref(buffer);
        }
    }

    Pushed(const Pushed&) = delete;
    Pushed& operator=(const Pushed&) = delete;

    int count() const { return int(buffers.size()); }
    GstBuffer* operator[](int i) const { return buffers[std::size_t(i)]; }
    GstMemory* memory(int i) const { return gst_buffer_peek_memory((*this)[i], 0); }

    /// The bytes of a buffer, where they are.
    QByteArray view(int i) const
    {
        GstMapInfo map;
        gst_memory_map(memory(i), &map, GST_MAP_READ);
        const auto bytes =
            QByteArray::fromRawData(reinterpret_cast<const char*>(map.data), int(map.size));
        gst_memory_unmap(memory(i), &map);
        return bytes;
    }

    /// Where the array begins that a buffer is a view of.
    const void* array(int i) const { return view(i).constData() - memory(i)->offset; }

    QByteArray all() const
    {
        QByteArray bytes;
        for (int i = 0; i < count(); ++i) {
            bytes.append(view(i));
        }
        return bytes;
    }

private:
    static gboolean keep(GSignalInvocationHint*, guint, const GValue* values, gpointer self)
    {
        static_cast<Pushed*>(self)->buffers.push_back(
            gst_buffer_ref(static_cast<GstBuffer*>(g_value_get_boxed(&values[1]))));
        return TRUE;
    }

    const guint signal;
    const gulong hook;
    std::vector<GstBuffer*> buffers;
};

inline const QByteArray tenBytes("0123456789");

#endif
