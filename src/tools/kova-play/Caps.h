#ifndef KOVA_PLAY_CAPS_H
#define KOVA_PLAY_CAPS_H

#include <QtCore/QString>

/// Caps: GStreamer's description of a format, a media type and fields.
namespace caps {

/// Looks for mistakes in caps that a user wrote. After GStreamer was initialised.
/// @return which field is wrong and what it may be; empty when a stream can be described so
QString problemWith(const QString& text);

} // namespace caps

#endif
