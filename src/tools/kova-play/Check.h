#ifndef KOVA_PLAY_CHECK_H
#define KOVA_PLAY_CHECK_H

#include <QtCore/QString>

class Console;

/// Whether Qt's event loop also delivers GStreamer's messages. After the application was made.
bool runsOnGLib();

/// What to do when it does not.
QString hintOnGLib();

/// Looks for everything that playing needs and prints one line for each: "ok" and what is there, or
/// "FAILED", what is wrong and what to do.
/// @param device  the ALSA device to open
/// @return whether nothing is missing
bool runCheck(const QString& device, Console& console);

#endif
