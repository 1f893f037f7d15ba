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

/// Opens a device for playback and closes it again.
/// @param name  its ALSA name
/// @return what is wrong with it and what to do; empty when it opens
QString problemWith(const QString& name);

} // namespace devices

#endif
