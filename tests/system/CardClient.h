#ifndef TEST_SYSTEM_CARD_CLIENT_H
#define TEST_SYSTEM_CARD_CLIENT_H

#include "kit/Sound.h"
#include "kit/VirtualCard.h"
#include "kit/Waiting.h"

#include <alsa/asoundlib.h>

#include <memory>

// A client of ALSA that plays on a virtual card.

struct ClosePcm
{
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
using Pcm = std::unique_ptr<snd_pcm_t, ClosePcm>;

/// The parameters with which a client configures a card.
struct Setup
{
    Setup() = default;
    /// What a sound needs.
    explicit Setup(const media::Pcm& sound);

    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
    unsigned channels = 2;
    unsigned rate = 48000;
    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
    snd_pcm_uframes_t buffer = 9600;
    snd_pcm_uframes_t period = 480;
};

/// Opens a card. @return null after an error, which is in errno then
Pcm openPcm(const QString& device, int mode = 0);

/// Configures a card that starts when its buffer is full. @return 0 or ALSA's error
int configure(const Pcm& pcm, const Setup& setup);

/// Writes all frames, waiting for room. @return whether all were taken
bool writeAll(const Pcm& pcm, const QByteArray& samples);

/// Opens the card, plays a sound to its end and closes the card. @return whether all went well
bool play(const QString& device, const media::Pcm& sound);

/// The first event of a name.
VirtualCard::Event find(const VirtualCard& card, const QString& name);

/// A format as VirtualCard::format() writes it.
QString nameOf(media::SampleFormat format);

#endif
