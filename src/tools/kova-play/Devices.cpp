#include "Devices.h"

#include <QtCore/QFile>

#include <alsa/asoundlib.h>

#include <cerrno>
#include <memory>

namespace {

struct HintsDeleter
{
    void operator()(void** hints) const { snd_device_name_free_hint(hints); }
};
using Hints = std::unique_ptr<void*, HintsDeleter>;

/// One property of a device; a null text when it has none.
QString property(const void* hint, const char* id)
{
    const std::unique_ptr<char, decltype(&std::free)> value(snd_device_name_get_hint(hint, id),
                                                            &std::free);
    return QString::fromLocal8Bit(value.get());
}

/// Keeps ALSA from writing on standard error: what it finds is said in one line here.
// NOLINTNEXTLINE(cert-dcl50-cpp): ALSA's type
void ignoreMessage(const char* /*file*/, int /*line*/, const char* /*function*/, int /*error*/,
                   const char* /*format*/, ...)
{
}

/// What the user can do about an error of ALSA.
QString remedy(int error)
{
    switch (error) {
    case -EBUSY:
        return "another program uses it: end that one, or play through a device that mixes";
    case -ENOENT:
    case -ENODEV:
    case -ENXIO:
        return "there is no such device: kova-play --list-devices shows the names";
    case -EACCES:
    case -EPERM:
        return "this user may not use it: join the group 'audio'";
    default:
        return "kova-play --list-devices shows what else there is";
    }
}

} // namespace

std::vector<devices::Device> devices::list()
{
    snd_lib_error_set_handler(ignoreMessage);
    void** found = nullptr;
    if (snd_device_name_hint(-1, "pcm", &found) < 0) {
        return {};
    }
    const Hints hints(found);
    std::vector<Device> result;
    for (void** hint = found; *hint; ++hint) {
        // Devices that both play and record have no direction.
        const QString direction = property(*hint, "IOID");
        if (direction.isNull() || direction == QLatin1String("Output")) {
            result.push_back({property(*hint, "NAME"), property(*hint, "DESC")});
        }
    }
    return result;
}

QString devices::problemWith(const QString& name)
{
    snd_lib_error_set_handler(ignoreMessage);
    snd_pcm_t* pcm = nullptr;
    // Without SND_PCM_NONBLOCK a device that another program uses would be waited for.
    const int error =
        snd_pcm_open(&pcm, name.toUtf8().constData(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    if (error < 0) {
        return QString::fromLocal8Bit(snd_strerror(error)) + "; " + remedy(error);
    }
    snd_pcm_close(pcm);
    return QString();
}
