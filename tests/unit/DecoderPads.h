#ifndef UNIT_DECODER_PADS_H
#define UNIT_DECODER_PADS_H

#include <gst/gst.h>

/// Adds a pad such as a decoder announces to an element, which emits "pad-added".
/// @param decoder  the engine's decoder; it owns the pad
/// @param name     the pad's name, one that the decoder has not used yet
/// @param caps     what the pad carries, as gst_caps_from_string() takes it
inline GstPad* announcePad(GstElement* decoder, const char* name, const char* caps)
{
    GstCaps* padCaps = gst_caps_from_string(caps);
    GstPadTemplate* padTemplate = gst_pad_template_new(name, GST_PAD_SRC, GST_PAD_ALWAYS, padCaps);
    GstPad* pad = gst_pad_new_from_template(padTemplate, name);
    gst_object_unref(padTemplate);
    gst_caps_unref(padCaps);
    gst_element_add_pad(decoder, pad);
    return pad;
}

#endif
