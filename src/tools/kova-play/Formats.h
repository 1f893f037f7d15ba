#ifndef KOVA_PLAY_FORMATS_H
#define KOVA_PLAY_FORMATS_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <gst/gst.h>

#include <vector>

/// The audio formats and protocols that users ask for, and the Debian packages that bring them.
/// All functions are for the time after GStreamer was initialised.
namespace formats {

/// One thing that playing a format needs.
struct Need
{
    enum class Kind
    {
        Demuxer,
        Parser,
        Decoder,
        Protocol,
        Tls, ///< of GLib, which GStreamer's source for https uses
    };

    Kind kind;
    const char* what;    ///< the caps that it takes, or the name of the protocol
    const char* package; ///< the Debian package that brings it
};

struct Format
{
    const char* name;
    std::vector<Need> needs;
};

/// All formats, in the order in which they are shown.
const std::vector<Format>& all();

/// The Debian packages that are missing to play a format; empty when it can be played.
QStringList missingPackages(const Format& format);

/// Whether an installed element takes such data apart or decodes it.
bool isDecodable(const GstCaps* data);

/// The Debian package for something that GStreamer reports as missing.
/// @param installerDetail  GStreamer's description for programs that install plug-ins
/// @return an empty text when it is not known
QString packageFor(const QString& installerDetail);

} // namespace formats

#endif
