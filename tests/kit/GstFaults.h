#ifndef KIT_GST_FAULTS_H
#define KIT_GST_FAULTS_H

#include <gst/gst.h>

/// Makes one element factory unavailable while it lives, as on a machine that lacks its plug-in.
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

/// Puts another element type behind a factory name while it lives.
class ReplacedFactory
{
public:
    /// @param factory  the factory to replace, "audioconvert" for instance
    /// @param with     the factory whose elements are made in its place
    ReplacedFactory(const char* factory, const char* with);
    /// @param type  the type of the elements that are made in its place
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
/// Lets the element accept everything from now on, so that its pipeline can be released.
void stopRefusing(GstElement* refusingElement);

#endif
