#include "Devices.h"

#include <QtCore/QStringList>

#include <alsa/asoundlib.h>

#include <cerrno>
#include <memory>

namespace {

struct HintsDeleter
{
    void operator()(void** hints) const { snd_device_name_free_hint(hints); }
};
using Hints = std::unique_ptr<void*, HintsDeleter>;

struct PcmCloser
{
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
using Pcm = std::unique_ptr<snd_pcm_t, PcmCloser>;

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

/// A set of configurations of a device.
class HwParams
{
public:
    HwParams() { snd_pcm_hw_params_malloc(&params); }
    HwParams(const HwParams& other) : HwParams() { *this = other; }
    ~HwParams() { snd_pcm_hw_params_free(params); }
    HwParams& operator=(const HwParams& other)
    {
        if (this != &other) {
            snd_pcm_hw_params_copy(params, other.params);
        }
        return *this;
    }

    snd_pcm_hw_params_t* get() const { return params; }

private:
    snd_pcm_hw_params_t* params = nullptr;
};

/// Opens a device for playback. @return an error of ALSA, or 0
int open(const QString& name, Pcm& device)
{
    snd_lib_error_set_handler(ignoreMessage);
    snd_pcm_t* pcm = nullptr;
    // Without SND_PCM_NONBLOCK this would wait for a device that another program uses.
    const int error =
        snd_pcm_open(&pcm, name.toUtf8().constData(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    device.reset(error < 0 ? nullptr : pcm);
    return error;
}

QString messageOf(int error)
{
    return QString::fromLocal8Bit(snd_strerror(error));
}

std::vector<snd_pcm_format_t> formatsOf(const HwParams& params)
{
    std::vector<snd_pcm_format_t> formats;
    for (int i = 0; i <= SND_PCM_FORMAT_LAST; ++i) {
        const auto format = static_cast<snd_pcm_format_t>(i);
        snd_pcm_format_mask_t* mask = nullptr;
        snd_pcm_format_mask_alloca(&mask);
        snd_pcm_hw_params_get_format_mask(params.get(), mask);
        if (snd_pcm_format_mask_test(mask, format) && snd_pcm_format_name(format)) {
            formats.push_back(format);
        }
    }
    return formats;
}

QString range(unsigned least, unsigned most, const QString& unit)
{
    return least == most
               ? QString("%1 %2").arg(QString::number(least), unit)
               : QString("%1 to %2 %3").arg(QString::number(least), QString::number(most), unit);
}

/// The formats, rates and numbers of channels in a set of configurations.
QString rangesOf(const HwParams& params)
{
    QStringList formats;
    for (const snd_pcm_format_t format : formatsOf(params)) {
        formats << snd_pcm_format_name(format);
    }
    unsigned leastRate = 0;
    unsigned mostRate = 0;
    unsigned leastChannels = 0;
    unsigned mostChannels = 0;
    snd_pcm_hw_params_get_rate_min(params.get(), &leastRate, nullptr);
    snd_pcm_hw_params_get_rate_max(params.get(), &mostRate, nullptr);
    snd_pcm_hw_params_get_channels_min(params.get(), &leastChannels);
    snd_pcm_hw_params_get_channels_max(params.get(), &mostChannels);
    // A device that converts takes them all.
    const QString list =
        formats.size() > 12 ? QString("%1 sample formats").arg(formats.size()) : formats.join(' ');
    return list + ", " + range(leastRate, mostRate, "Hz") + ", " +
           range(leastChannels, mostChannels, "channels");
}

/// Sets one of the configurations, with any format.
/// @param params  all of them; afterwards the one that was set
/// @return 0, or ALSA's error for the last format that was tried
int configure(snd_pcm_t* pcm, HwParams& params)
{
    int error = -EINVAL;
    for (const snd_pcm_format_t format : formatsOf(params)) {
        HwParams chosen = params;
        unsigned rate = 48000;
        snd_pcm_hw_params_set_access(pcm, chosen.get(), SND_PCM_ACCESS_RW_INTERLEAVED);
        snd_pcm_hw_params_set_format(pcm, chosen.get(), format);
        snd_pcm_hw_params_set_rate_near(pcm, chosen.get(), &rate, nullptr);
        error = snd_pcm_hw_params(pcm, chosen.get());
        if (error == 0) {
            params = chosen;
            break;
        }
    }
    return error;
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

devices::Report devices::examine(const QString& name)
{
    Pcm pcm;
    int error = open(name, pcm);
    if (error < 0) {
        return {messageOf(error) + "; " + remedy(error), QString()};
    }
    HwParams params;
    error = snd_pcm_hw_params_any(pcm.get(), params.get());
    if (error < 0) {
        return {messageOf(error) + "; it has no configuration", QString()};
    }
    const QString takes = rangesOf(params);
    error = configure(pcm.get(), params);
    if (error < 0) {
        return {"refuses every format (" + messageOf(error) + "); it lists " + takes, QString()};
    }
    const bool pauses = snd_pcm_hw_params_can_pause(params.get()) == 1;
    return {QString(), takes + (pauses ? "; can pause" : "; cannot pause")};
}

bool devices::canPause(const QString& name)
{
    Pcm pcm;
    if (open(name, pcm) < 0) {
        return false;
    }
    const HwParams params;
    return snd_pcm_hw_params_any(pcm.get(), params.get()) >= 0 &&
           snd_pcm_hw_params_can_pause(params.get()) == 1;
}
