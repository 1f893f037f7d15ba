#include "kit/GstFaults.h"

#include <QtCore/QtGlobal>

MissingFactory::MissingFactory(const char* factory)
    : feature(gst_registry_find_feature(gst_registry_get(), factory, GST_TYPE_ELEMENT_FACTORY))
{
    if (!feature) {
        qFatal("there is no element factory %s to take away", factory);
    }
    gst_registry_remove_feature(gst_registry_get(), feature);
}

MissingFactory::~MissingFactory()
{
    gst_registry_add_feature(gst_registry_get(), feature);
    gst_object_unref(feature);
}

/// What a factory makes.
static GType typeMadeBy(const char* factory)
{
    GstElementFactory* source = gst_element_factory_find(factory);
    gst_object_unref(gst_plugin_feature_load(GST_PLUGIN_FEATURE(source)));
    const GType type = gst_element_factory_get_element_type(source);
    gst_object_unref(source);
    return type;
}

ReplacedFactory::ReplacedFactory(const char* factory, const char* with)
    : ReplacedFactory(factory, typeMadeBy(with))
{
}

ReplacedFactory::ReplacedFactory(const char* factory, GType type)
    : original(factory), replacement(nullptr)
{
    if (!gst_element_register(nullptr, factory, GST_RANK_NONE, type)) {
        qFatal("cannot register %s as %s", g_type_name(type), factory);
    }
    replacement = gst_registry_find_feature(gst_registry_get(), factory, GST_TYPE_ELEMENT_FACTORY);
}

ReplacedFactory::~ReplacedFactory()
{
    gst_registry_remove_feature(gst_registry_get(), replacement);
    gst_object_unref(replacement);
}

// ---- RefusingElement ---------------------------------------------------------------------------

namespace {

struct RefusingElement
{
    GstElement parent;
    GstStateChange refused;
};

struct RefusingElementClass
{
    GstElementClass parent;
};

G_DEFINE_TYPE(RefusingElement, refusing_element, GST_TYPE_ELEMENT)

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    if (transition == reinterpret_cast<RefusingElement*>(element)->refused) {
        return GST_STATE_CHANGE_FAILURE;
    }
    return GST_ELEMENT_CLASS(refusing_element_parent_class)->change_state(element, transition);
}

void refusing_element_class_init(RefusingElementClass* elementClass)
{
    GST_ELEMENT_CLASS(elementClass)->change_state = changeState;
}

void refusing_element_init(RefusingElement*)
{
}

} // namespace

GstElement* makeRefusingElement(GstStateChange refused)
{
    auto* element =
        static_cast<RefusingElement*>(g_object_new(refusing_element_get_type(), nullptr));
    element->refused = refused;
    return GST_ELEMENT(element);
}

void stopRefusing(GstElement* refusingElement)
{
    reinterpret_cast<RefusingElement*>(refusingElement)->refused = static_cast<GstStateChange>(0);
}
