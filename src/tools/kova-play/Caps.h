#ifndef KOVA_PLAY_CAPS_H
#define KOVA_PLAY_CAPS_H

#include <QtCore/QString>

#include <gst/gst.h>

/// Caps: GStreamer's description of a format, a media type and fields.
namespace caps {

/// Looks for mistakes in caps that a user wrote. After GStreamer was initialised.
/// @return which field is wrong and what it may be; empty when a stream can be described so
QString problemWith(const QString& text);

/// One format in words: "48000 Hz stereo S16LE", or the media type of what is not raw samples.
QString inWords(const GstCaps* format);

} // namespace caps

#endif
