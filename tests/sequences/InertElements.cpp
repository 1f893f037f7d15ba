#include "sequences/InertElements.h"

#include <gst/app/gstappsrc.h>
#include <gst/base/gstbasesrc.h>

#include <cstring>
#include <initializer_list>
#include <thread>

inert::Faults inert::faults;
int inert::seeks = 0;

namespace {

/// Keeps the state changes of an element off the bus: a model that had to count them would be a
/// model of GStreamer.
template <typename Class>
gboolean postNoStateChange(GstElement* element, GstMessage* message, Class* parentClass)
{
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_STATE_CHANGED) {
        gst_message_unref(message);
        return TRUE;
    }
    return GST_ELEMENT_CLASS(parentClass)->post_message(element, message);
}

// ---- InertElement: everything but the appsrc ---------------------------------------------------

struct InertElement
{
    GstElement parent;
};

struct InertElementClass
{
    GstElementClass parent;
};

G_DEFINE_TYPE(InertElement, inert_element, GST_TYPE_ELEMENT)

enum Property
{
    Uri = 1,
    Device,
    Silent,
};

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    if (inert::faults.stateChange && std::strcmp(GST_OBJECT_NAME(element), "AudioSink") == 0) {
        inert::faults.stateChange = false;
        return GST_STATE_CHANGE_FAILURE;
    }
    return GST_ELEMENT_CLASS(inert_element_parent_class)->change_state(element, transition);
}

gboolean sendEvent(GstElement* /*element*/, GstEvent* event)
{
    inert::seeks += GST_EVENT_TYPE(event) == GST_EVENT_SEEK ? 1 : 0;
    gst_event_unref(event);
    return !inert::faults.seek;
}

gboolean postMessage(GstElement* element, GstMessage* message)
{
    return postNoStateChange(element, message, inert_element_parent_class);
}

void setProperty(GObject* /*object*/, guint /*id*/, const GValue* /*value*/, GParamSpec* /*spec*/)
{
}

void addPadTemplate(GstElementClass* elementClass, const char* name, GstPadDirection direction)
{
    GstCaps* anything = gst_caps_new_any();
    gst_element_class_add_pad_template(
        elementClass, gst_pad_template_new(name, direction, GST_PAD_ALWAYS, anything));
    gst_caps_unref(anything);
}

void inert_element_class_init(InertElementClass* inertClass)
{
    GstElementClass* elementClass = GST_ELEMENT_CLASS(inertClass);
    elementClass->change_state = changeState;
    elementClass->send_event = sendEvent;
    elementClass->post_message = postMessage;
    gst_element_class_set_static_metadata(elementClass, "Inert element", "Generic",
                                          "Replaces any element", "tests");
    addPadTemplate(elementClass, "sink", GST_PAD_SINK);
    addPadTemplate(elementClass, "src", GST_PAD_SRC);

    GObjectClass* objectClass = G_OBJECT_CLASS(inertClass);
    objectClass->set_property = setProperty;
    const auto flags = GParamFlags(G_PARAM_WRITABLE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(objectClass, Uri,
                                    g_param_spec_string("uri", "uri", "uri", nullptr, flags));
    g_object_class_install_property(
        objectClass, Device, g_param_spec_string("device", "device", "device", nullptr, flags));
    g_object_class_install_property(
        objectClass, Silent, g_param_spec_boolean("silent", "silent", "silent", TRUE, flags));
}

void inert_element_init(InertElement* element)
{
    GstElementClass* elementClass = GST_ELEMENT_GET_CLASS(element);
    for (const char* name : {"sink", "src"}) {
        gst_element_add_pad(GST_ELEMENT(element),
                            gst_pad_new_from_template(
                                gst_element_class_get_pad_template(elementClass, name), name));
    }
}

// ---- InertAppSrc -------------------------------------------------------------------------------

struct InertAppSrc
{
    GstAppSrc parent;
};

struct InertAppSrcClass
{
    GstAppSrcClass parent;
};

G_DEFINE_TYPE(InertAppSrc, inert_app_src, GST_TYPE_APP_SRC)

gboolean postMessageOfAppSrc(GstElement* element, GstMessage* message)
{
    return postNoStateChange(element, message, inert_app_src_parent_class);
}

gboolean activateNothing(GstPad* /*pad*/, GstObject* /*parent*/, GstPadMode /*mode*/,
                         gboolean /*active*/)
{
    return TRUE;
}

void inert_app_src_class_init(InertAppSrcClass* inertClass)
{
    GST_ELEMENT_CLASS(inertClass)->post_message = postMessageOfAppSrc;
}

void inert_app_src_init(InertAppSrc* appsrc)
{
    gst_pad_set_activatemode_function(GST_BASE_SRC_PAD(appsrc), activateNothing);
}

} // namespace

void inert::registerFactories()
{
    for (const char* name : {"uridecodebin", "decodebin", "queue", "audioconvert", "audioresample",
                             "identity", "alsasink"}) {
        gst_element_register(nullptr, name, GST_RANK_NONE, inert_element_get_type());
    }
    gst_element_register(nullptr, "appsrc", GST_RANK_NONE, inert_app_src_get_type());
}

int inert::bytesIn(GstElement* appsrc)
{
    return static_cast<int>(gst_app_src_get_current_level_bytes(GST_APP_SRC(appsrc)));
}

void inert::setFlushing(GstElement* appsrc, bool flushing)
{
    GstBaseSrcClass* sourceClass = GST_BASE_SRC_GET_CLASS(appsrc);
    (flushing ? sourceClass->unlock : sourceClass->unlock_stop)(GST_BASE_SRC(appsrc));
}

void inert::emitNeedData(GstElement* appsrc, guint size)
{
    std::thread([=] { g_signal_emit_by_name(appsrc, "need-data", size); }).join();
}

void inert::emitEnoughData(GstElement* appsrc)
{
    std::thread([=] { g_signal_emit_by_name(appsrc, "enough-data"); }).join();
}

void inert::emitSeekData(GstElement* appsrc, guint64 offset)
{
    std::thread([=] {
        gboolean accepted = FALSE;
        g_signal_emit_by_name(appsrc, "seek-data", offset, &accepted);
    }).join();
}
