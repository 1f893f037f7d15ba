#ifndef KOVA_PLAY_OWNERS_H
#define KOVA_PLAY_OWNERS_H

#include <gst/gst.h>

#include <memory>

/// Owners of what GStreamer and GLib hand out.
namespace gst {

template <auto release>
struct Releaser
{
    template <typename Thing>
    void operator()(Thing* thing) const
    {
        release(thing);
    }
};

using Bus = std::unique_ptr<GstBus, Releaser<gst_object_unref>>;
using Caps = std::unique_ptr<GstCaps, Releaser<gst_caps_unref>>;
using Element = std::unique_ptr<GstElement, Releaser<gst_object_unref>>;
using Error = std::unique_ptr<GError, Releaser<g_error_free>>;
using FeatureList = std::unique_ptr<GList, Releaser<gst_plugin_feature_list_free>>;
using Iterator = std::unique_ptr<GstIterator, Releaser<gst_iterator_free>>;
using Message = std::unique_ptr<GstMessage, Releaser<gst_message_unref>>;
using Pad = std::unique_ptr<GstPad, Releaser<gst_object_unref>>;
using Text = std::unique_ptr<gchar, Releaser<g_free>>;

} // namespace gst

#endif
