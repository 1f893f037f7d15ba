#ifndef VIRTUALCARD_CARD_SETTINGS_H
#define VIRTUALCARD_CARD_SETTINGS_H

#include <alsa/asoundlib.h>

#include <cstdint>
#include <string>

/// The settings of one card in the configuration `pcm.NAME { type virtualcard … }`.
struct CardSettings
{
    /// What the card refuses.
    enum class Refuse
    {
        Nothing,
        Open,   ///< it cannot be opened, as if another program used it (EBUSY)
        Format, ///< it accepts no format (EINVAL)
        Rate,   ///< it accepts no rate (EINVAL)
    };
    /// What happens if the client does not write in time.
    enum class Starve
    {
        Xrun, ///< an underrun, as on hardware
        Wait, ///< the card waits for its client, see VirtualSoundCard
    };

    std::string record; ///< WAV file of everything played; none if empty
    std::string events; ///< text file of events; none if empty
    double speed = 1.0; ///< how many times faster than real time the card plays
    bool canPause = true;
    Refuse refuse = Refuse::Nothing;
    Starve starve = Starve::Xrun;
    std::int64_t vanishAfter = -1; ///< frames until the card vanishes; never if negative
    std::int64_t stallAfter = -1;  ///< frames until the card stalls; never if negative
};

/// Reads the settings of a card.
/// @return 0, or -EINVAL after one line of ALSA's error report that names the field
int readCardSettings(const snd_config_t* configuration, CardSettings& settings);

#endif
