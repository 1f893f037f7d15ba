#ifndef KOVA_PLAY_DEVICES_H
#define KOVA_PLAY_DEVICES_H

#include <QtCore/QString>

#include <vector>

/// The ALSA devices of this machine, as its configuration names them.
namespace devices {

struct Device
{
    QString name;
    QString description; ///< one or more lines; may be empty
};

/// All devices that can play and that the configuration wants to be listed.
std::vector<Device> list();

/// What a device is like.
struct Report
{
    QString problem; ///< why nothing can be played on it and what to do; empty when it can
    QString takes;   ///< its sample formats, rates and channels, and whether it can pause
};

/// Opens a device for playback, configures it and closes it again.
/// @param name  its ALSA name
Report examine(const QString& name);

/// Whether a device can pause. It is opened for that, and not configured; one that does not open
/// cannot.
bool canPause(const QString& name);

} // namespace devices

#endif
