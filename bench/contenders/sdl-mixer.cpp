// SDL's mixer. It opens one device for the whole process and plays silence between sounds. The
// device is always ALSA's default one.
#include "Contender.h"
#include "PlainLoop.h"

#include <SDL.h>
#include <SDL_mixer.h>

#include <cstdio>
#include <cstdlib>

static const int framesPerPeriod = 1024;

static void failWithoutSuccess(bool success)
{
    if (!success) {
        std::fprintf(stderr, "SDL: %s\n", SDL_GetError());
        std::exit(1);
    }
}

namespace {

class SdlPlayback : public Playback
{
public:
    SdlPlayback(const std::string& item, Outcome outcomeReceiver)
        : outcome(std::move(outcomeReceiver))
    {
        // The mixer counts these calls: the first one opens the device, the last one closes it.
        failWithoutSuccess(Mix_OpenAudio(48000, AUDIO_S16SYS, 2, framesPerPeriod) == 0);
        music = Mix_LoadMUS(item.c_str());
        failWithoutSuccess(music != nullptr);
    }

    ~SdlPlayback() override
    {
        playing = nullptr;
        Mix_HookMusicFinished(nullptr);
        Mix_FreeMusic(music);
        Mix_CloseAudio();
    }

    void start() override
    {
        playing = this;
        Mix_HookMusicFinished(reportEnd);
        failWithoutSuccess(Mix_PlayMusic(music, 1) == 0);
    }

private:
    /// Called on the thread that mixes.
    static void reportEnd()
    {
        SdlPlayback* const me = playing;
        me->loop.post([me] { me->outcome(true); });
    }

    static SdlPlayback* playing; ///< the mixer plays one item at a time

    const Outcome outcome;
    const LoopPost loop;
    Mix_Music* music = nullptr;
};

SdlPlayback* SdlPlayback::playing = nullptr;

} // namespace

void contender::begin(int& /*argc*/, char** /*argv*/)
{
    SDL_SetHint("SDL_AUDIODRIVER", "alsa");
    failWithoutSuccess(SDL_Init(SDL_INIT_AUDIO) == 0);
}

std::unique_ptr<Playback> contender::prepare(const std::string& item, const std::string& /*device*/,
                                             bool /*loop*/, Outcome outcome)
{
    return std::make_unique<SdlPlayback>(item, std::move(outcome));
}
