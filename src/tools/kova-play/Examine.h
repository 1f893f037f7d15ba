#ifndef KOVA_PLAY_EXAMINE_H
#define KOVA_PLAY_EXAMINE_H

#include <QtCore/QString>
#include <QtCore/QStringList>

/// What GStreamer finds in an item.
struct Examination
{
    QString problem;      ///< why it cannot be played; empty when it can
    QString hint;         ///< what to do about it, as packages to install; may be empty
    QString type;         ///< container and codec, in words
    QStringList elements; ///< what reads and decodes it, in the order in which it was added
    QString sound;        ///< the decoded format, in words
    QString fit;          ///< how the device takes that
};

/// Decodes the beginning of an item without playing it. After GStreamer was initialised. Blocks
/// until the first sound was decoded, at most for some seconds.
/// @param item    a path, "file://" with a path, or a web URI
/// @param device  the ALSA device whose formats matter
Examination examine(const QString& item, const QString& device);

#endif
