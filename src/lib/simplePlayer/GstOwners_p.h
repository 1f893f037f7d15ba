#ifndef SIMPLE_PLAYER_GST_OWNERS_P_H
#define SIMPLE_PLAYER_GST_OWNERS_P_H

#include <gst/gst.h>

#include <memory>

/// Owners of C resources within a function. Each adopts one reference and releases it at the end of
/// its scope. What a pipeline owns is never held by one of these.
namespace gst {

template <auto release>
struct Releaser
{
    template <typename T>
    void operator()(T* resource) const noexcept
    {
        release(resource);
    }
};

using Bus = std::unique_ptr<GstBus, Releaser<gst_object_unref>>;
using Pad = std::unique_ptr<GstPad, Releaser<gst_object_unref>>;
using Caps = std::unique_ptr<GstCaps, Releaser<gst_caps_unref>>;
using Error = std::unique_ptr<GError, Releaser<g_error_free>>;
using Text = std::unique_ptr<gchar, Releaser<g_free>>;

} // namespace gst

#endif
