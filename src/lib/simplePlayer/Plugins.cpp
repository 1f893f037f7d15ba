#include "simplePlayer/GstOwners_p.h"
#include "simplePlayer/Plugins_p.h"

#include <initializer_list>
#include <mutex>

void loadElement(const char* name)
{
    const gst::Factory factory(gst_element_factory_find(name));
    if (!factory) {
        return;
    }
    const gst::Factory loaded(
        GST_ELEMENT_FACTORY(gst_plugin_feature_load(GST_PLUGIN_FEATURE(factory.get()))));
    if (loaded) { // GCOVR_EXCL_BR_LINE: or the file has gone since the registry was written
        // Kept on purpose, as GStreamer keeps the plug-in: the class stays for the next player.
        g_type_class_ref(gst_element_factory_get_element_type(loaded.get()));
    }
}

static void loadAll()
{
    // What all pipelines have in common, and uridecodebin, which comes with decodebin and makes one
    // itself. The queue stands for all of GStreamer's core elements.
    for (const char* name :
         {"uridecodebin", "decodebin", "queue", "audioconvert", "audioresample", "alsasink"}) {
        loadElement(name);
    }
    const gst::Plugin typeFinders(gst_plugin_load_by_name("typefindfunctions"));
}

void loadPlugins()
{
    static std::once_flag once;
    std::call_once(once, loadAll);
}
