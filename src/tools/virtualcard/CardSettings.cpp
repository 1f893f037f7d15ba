#include "CardSettings.h"

#include <cerrno>
#include <cmath>
#include <cstring>

static bool readText(const snd_config_t* node, std::string& text)
{
    const char* value = nullptr;
    if (snd_config_get_string(node, &value) < 0 || !value || !*value) {
        return false;
    }
    text = value;
    return true;
}

static bool readSpeed(const snd_config_t* node, double& speed)
{
    return snd_config_get_ireal(node, &speed) >= 0 && std::isfinite(speed) && speed > 0.0;
}

static bool readBool(const snd_config_t* node, bool& flag)
{
    const int value = snd_config_get_bool(node);
    flag = value > 0;
    return value >= 0;
}

static bool readFrames(const snd_config_t* node, std::int64_t& frames)
{
    // In the configuration, numbers up to 32 bits have another type than larger ones.
    long small = 0;
    long long large = 0;
    if (snd_config_get_integer(node, &small) >= 0) {
        frames = small;
    } else if (snd_config_get_integer64(node, &large) >= 0) {
        frames = large;
    } else {
        return false;
    }
    return frames >= 0;
}

static bool readRefuse(const snd_config_t* node, CardSettings::Refuse& refuse)
{
    std::string what;
    if (!readText(node, what)) {
        return false;
    }
    if (what == "open") {
        refuse = CardSettings::Refuse::Open;
    } else if (what == "format") {
        refuse = CardSettings::Refuse::Format;
    } else if (what == "rate") {
        refuse = CardSettings::Refuse::Rate;
    } else {
        return false;
    }
    return true;
}

static bool readStarve(const snd_config_t* node, CardSettings::Starve& starve)
{
    std::string what;
    if (!readText(node, what)) {
        return false;
    }
    if (what != "xrun" && what != "wait") {
        return false;
    }
    starve = what == "wait" ? CardSettings::Starve::Wait : CardSettings::Starve::Xrun;
    return true;
}

/// Reads one field. An unknown field is an error, like a bad value.
static bool readField(const std::string& id, const snd_config_t* node, CardSettings& settings)
{
    if (id == "record") {
        return readText(node, settings.record);
    }
    if (id == "events") {
        return readText(node, settings.events);
    }
    if (id == "speed") {
        return readSpeed(node, settings.speed);
    }
    if (id == "pause") {
        return readBool(node, settings.canPause);
    }
    if (id == "refuse") {
        return readRefuse(node, settings.refuse);
    }
    if (id == "starve") {
        return readStarve(node, settings.starve);
    }
    if (id == "vanish_after") {
        return readFrames(node, settings.vanishAfter);
    }
    return id == "stall_after" && readFrames(node, settings.stallAfter);
}

/// The fields that every ALSA PCM may have.
static bool isCommonField(const std::string& id)
{
    return id == "type" || id == "comment" || id == "hint";
}

int readCardSettings(const snd_config_t* configuration, CardSettings& settings)
{
    snd_config_iterator_t i = nullptr;
    snd_config_iterator_t next = nullptr;
    snd_config_for_each(i, next, configuration)
    {
        const snd_config_t* node = snd_config_iterator_entry(i);
        const char* id = nullptr;
        if (snd_config_get_id(node, &id) < 0 || isCommonField(id)) {
            continue;
        }
        if (!readField(id, node, settings)) {
            SNDERR("virtualcard: unknown field or bad value: %s", id);
            return -EINVAL;
        }
    }
    return 0;
}
