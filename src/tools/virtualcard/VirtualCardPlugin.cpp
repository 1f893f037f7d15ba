// The entry points that ALSA looks up in the plug-in.
#include "CardSettings.h"
#include "VirtualSoundCard.h"

#include <cerrno>
#include <exception>
#include <memory>
#include <new>

static int openCard(snd_pcm_t** pcm, const char* name, const snd_config_t* configuration,
                    snd_pcm_stream_t stream, int mode)
{
    CardSettings settings;
    int error = readCardSettings(configuration, settings);
    if (error < 0) {
        return error;
    }
    auto card = std::make_unique<VirtualSoundCard>(std::move(settings));
    error = card->open(name, stream, mode);
    if (error == 0) {
        *pcm = card->pcm();
        // From now on ALSA owns the card and deletes it through its close function.
        [[maybe_unused]] const VirtualSoundCard* owned = card.release();
    }
    return error;
}

extern "C" {

#pragma GCC visibility push(default)

/// Opens a PCM of the type `virtualcard`.
SND_PCM_PLUGIN_DEFINE_FUNC(virtualcard)
{
    // ALSA is C: no exception may reach it.
    try {
        static_cast<void>(root);
        return openCard(pcmp, name, conf, stream, mode);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    } catch (const std::exception&) {
        return -EIO;
    }
}

SND_PCM_PLUGIN_SYMBOL(virtualcard)

#pragma GCC visibility pop
}
