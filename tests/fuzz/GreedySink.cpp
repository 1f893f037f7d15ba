#include "fuzz/GreedySink.h"

#include "kit/GstFaults.h"

#include <QtCore/QtGlobal>

#include <gst/base/gstbasesink.h>
#include <gst/gst.h>

namespace {

struct GreedySink
{
    GstBaseSink parent;
};

struct GreedySinkClass
{
    GstBaseSinkClass parent;
};

G_DEFINE_TYPE(GreedySink, greedy_sink, GST_TYPE_BASE_SINK)

void ignoreProperty(GObject*, guint, const GValue*, GParamSpec*)
{
}

void greedy_sink_class_init(GreedySinkClass* sinkClass)
{
    static GstStaticPadTemplate pads = GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                               GST_STATIC_CAPS("audio/x-raw"));
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(sinkClass), "Greedy sink", "Sink/Audio",
                                          "Accepts all sound at once", "tests");
    gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(sinkClass), &pads);
    G_OBJECT_CLASS(sinkClass)->set_property = ignoreProperty;
    g_object_class_install_property(
        G_OBJECT_CLASS(sinkClass), 1,
        g_param_spec_string("device", "", "", nullptr, G_PARAM_WRITABLE));
}

void greedy_sink_init(GreedySink* sink)
{
    gst_base_sink_set_sync(GST_BASE_SINK(sink), FALSE);
    // Goes to PLAYING without waiting for sound: not every input has any.
    gst_base_sink_set_async_enabled(GST_BASE_SINK(sink), FALSE);
}

} // namespace

void useGreedySink()
{
    static const MissingFactory card("alsasink");
    if (!gst_element_register(nullptr, "alsasink", GST_RANK_NONE, greedy_sink_get_type())) {
        qFatal("cannot register the sink");
    }
}
