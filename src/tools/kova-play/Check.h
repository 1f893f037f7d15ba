#ifndef KOVA_PLAY_CHECK_H
#define KOVA_PLAY_CHECK_H

#include <QtCore/QString>
#include <QtCore/QStringList>

class Console;

/// Whether Qt's event loop also delivers GStreamer's messages. After the application was made.
bool runsOnGLib();

/// What to do when it does not.
QString hintOnGLib();

/// Looks for everything that playing needs and prints one line for each, which begins with "ok" and
/// what is there; "warning", with what is not as it should be; "missing", a format that cannot be
/// played and the package that brings it; or "FAILED", what is wrong and what to do.
/// @param device  the ALSA device to open
/// @param items   paths and URIs to examine as well
/// @return whether nothing has failed
bool runCheck(const QString& device, const QStringList& items, Console& console);

#endif
