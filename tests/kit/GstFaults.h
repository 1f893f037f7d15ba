#ifndef KIT_GST_FAULTS_H
#define KIT_GST_FAULTS_H

#include <gst/gst.h>

/// Makes one element factory unavailable during its lifetime, as on a machine without its plug-in.
class MissingFactory
{
public:
    explicit MissingFactory(const char* factory);
    ~MissingFactory();
    MissingFactory(const MissingFactory&) = delete;
    MissingFactory& operator=(const MissingFactory&) = delete;

private:
    GstPluginFeature* feature;
};

/// Replaces the element type of a factory name during its lifetime.
class ReplacedFactory
{
public:
    /// @param factory  the factory to replace, "audioconvert" for instance
    /// @param with     the factory whose elements replace it
    ReplacedFactory(const char* factory, const char* with);
    /// @param type  the type of the elements that replace it
    ReplacedFactory(const char* factory, GType type);
    ~ReplacedFactory();
    ReplacedFactory(const ReplacedFactory&) = delete;
    ReplacedFactory& operator=(const ReplacedFactory&) = delete;

private:
    MissingFactory original;
    GstPluginFeature* replacement;
};

/// Makes an element without pads that refuses one state change and accepts all others.
/// @param refused  GST_STATE_CHANGE_READY_TO_NULL for instance
GstElement* makeRefusingElement(GstStateChange refused);
/// Makes the element accept everything from now on, so that its pipeline can be released.
void stopRefusing(GstElement* refusingElement);

#endif
