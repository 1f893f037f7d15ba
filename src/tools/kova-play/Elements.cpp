#include "Elements.h"

#include <gst/gst.h>

const std::vector<elements::Element>& elements::needed()
{
    static const std::vector<Element> list = {
        {"uridecodebin", "gstreamer1.0-plugins-base"},
        {"decodebin", "gstreamer1.0-plugins-base"},
        {"appsrc", "gstreamer1.0-plugins-base"},
        {"identity", "libgstreamer1.0-0"},
        {"queue", "libgstreamer1.0-0"},
        {"audioconvert", "gstreamer1.0-plugins-base"},
        {"audioresample", "gstreamer1.0-plugins-base"},
        {"alsasink", "gstreamer1.0-alsa"},
    };
    return list;
}

QString elements::initialise()
{
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error)) {
        return QString();
    }
    // Without arguments to refuse, GStreamer fails on a broken machine only.
    QString reason = error ? QString::fromUtf8(error->message) : "unknown error";
    g_clear_error(&error);
    return reason;
}

bool elements::isInstalled(const Element& element)
{
    GstElementFactory* factory = gst_element_factory_find(element.name);
    if (!factory) {
        return false;
    }
    gst_object_unref(factory);
    return true;
}
