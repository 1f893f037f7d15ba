#ifndef KOVA_PLAY_MISSING_H
#define KOVA_PLAY_MISSING_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <gst/gst.h>

/// The plug-ins that GStreamer reports as missing during one playback.
class Missing
{
public:
    /// Takes note of a message, if it is about a missing plug-in or an error.
    void note(GstMessage* message);

    /// Whether nothing is missing.
    bool isEmpty() const { return names.isEmpty(); }
    /// Whether the playback has failed because something is missing. What a part of an item needs
    /// that is not played, such as its picture, may be missing without harm.
    bool isCause() const { return !isEmpty() && failed; }
    /// All of them, as a reason: "missing plug-in: Vorbis decoder".
    QString reason() const;
    /// How to install them; empty when no package is known.
    QString hint() const;

private:
    QStringList names;
    QStringList packages;
    bool failed = false; ///< an error reports that something is missing
};

#endif
