#include "system/CardClient.h"

#include <cerrno>

Pcm openPcm(const QString& device, int mode)
{
    snd_pcm_t* pcm = nullptr;
    const int error = snd_pcm_open(&pcm, qPrintable(device), SND_PCM_STREAM_PLAYBACK, mode);
    if (error < 0) {
        errno = -error;
    }
    return Pcm(pcm);
}

/// ALSA starts a card at the first frame that is written, unless another threshold is set.
static int startWhenFull(const Pcm& pcm)
{
    snd_pcm_uframes_t buffer = 0;
    snd_pcm_uframes_t period = 0;
    snd_pcm_get_params(pcm.get(), &buffer, &period);
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_malloc(&params);
    const std::unique_ptr<snd_pcm_sw_params_t, decltype(&snd_pcm_sw_params_free)> owner(
        params, snd_pcm_sw_params_free);
    for (const int error : {snd_pcm_sw_params_current(pcm.get(), params),
                            snd_pcm_sw_params_set_start_threshold(pcm.get(), params, buffer),
                            snd_pcm_sw_params_set_avail_min(pcm.get(), params, period)}) {
        if (error < 0) {
            return error;
        }
    }
    return snd_pcm_sw_params(pcm.get(), params);
}

int configure(const Pcm& pcm, const Setup& setup)
{
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_malloc(&params);
    const std::unique_ptr<snd_pcm_hw_params_t, decltype(&snd_pcm_hw_params_free)> owner(
        params, snd_pcm_hw_params_free);
    snd_pcm_uframes_t buffer = setup.buffer;
    snd_pcm_uframes_t period = setup.period;
    for (const int error : {
             snd_pcm_hw_params_any(pcm.get(), params),
             snd_pcm_hw_params_set_access(pcm.get(), params, setup.access),
             snd_pcm_hw_params_set_format(pcm.get(), params, setup.format),
             snd_pcm_hw_params_set_channels(pcm.get(), params, setup.channels),
             snd_pcm_hw_params_set_rate(pcm.get(), params, setup.rate, 0),
             snd_pcm_hw_params_set_period_size_near(pcm.get(), params, &period, nullptr),
             snd_pcm_hw_params_set_buffer_size_near(pcm.get(), params, &buffer),
         }) {
        if (error < 0) {
            return error;
        }
    }
    const int error = snd_pcm_hw_params(pcm.get(), params);
    return error < 0 ? error : startWhenFull(pcm);
}

static snd_pcm_format_t alsaFormat(media::SampleFormat format)
{
    switch (format) {
    case media::SampleFormat::S16:
        return SND_PCM_FORMAT_S16_LE;
    case media::SampleFormat::S24:
        return SND_PCM_FORMAT_S24_3LE;
    case media::SampleFormat::S32:
        return SND_PCM_FORMAT_S32_LE;
    case media::SampleFormat::F32:
        break;
    }
    return SND_PCM_FORMAT_FLOAT_LE;
}

Setup::Setup(const media::Pcm& sound)
    : format(alsaFormat(sound.format)), channels(static_cast<unsigned>(sound.channels)),
      rate(static_cast<unsigned>(sound.rate))
{
}

bool writeAll(const Pcm& pcm, const QByteArray& samples)
{
    const snd_pcm_sframes_t frames = snd_pcm_bytes_to_frames(pcm.get(), samples.size());
    return snd_pcm_writei(pcm.get(), samples.constData(), static_cast<snd_pcm_uframes_t>(frames)) ==
           frames;
}

bool play(const QString& device, const media::Pcm& sound)
{
    const Pcm pcm = openPcm(device);
    return pcm && configure(pcm, Setup(sound)) == 0 && writeAll(pcm, sound.samples) &&
           snd_pcm_drain(pcm.get()) == 0;
}

VirtualCard::Event find(const VirtualCard& card, const QString& name)
{
    for (const VirtualCard::Event& event : card.events()) {
        if (event.name == name) {
            return event;
        }
    }
    return {};
}

QString nameOf(media::SampleFormat format)
{
    switch (format) {
    case media::SampleFormat::S16:
        return QStringLiteral("S16");
    case media::SampleFormat::S24:
        return QStringLiteral("S24");
    case media::SampleFormat::S32:
        return QStringLiteral("S32");
    case media::SampleFormat::F32:
        break;
    }
    return QStringLiteral("F32");
}
