#include "VirtualSoundCard.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

/// The time after which draining a stalled card fails, in milliseconds.
constexpr int stalledDrain = 10000;

constexpr unsigned maxChannels = 8;

VirtualSoundCard& cardOf(snd_pcm_ioplug_t* io)
{
    return *static_cast<VirtualSoundCard*>(io->private_data);
}

/// The callbacks for ALSA. Each one forwards to the card.
snd_pcm_ioplug_callback_t makeCallbacks(bool canPause)
{
    snd_pcm_ioplug_callback_t table{};
    table.start = [](snd_pcm_ioplug_t* io) { return cardOf(io).start(); };
    table.stop = [](snd_pcm_ioplug_t* io) { return cardOf(io).stop(); };
    table.pointer = [](snd_pcm_ioplug_t* io) { return cardOf(io).pointer(); };
    table.close = [](snd_pcm_ioplug_t* io) {
        delete &cardOf(io);
        return 0;
    };
    table.hw_params = [](snd_pcm_ioplug_t* io, snd_pcm_hw_params_t*) {
        return cardOf(io).hwParams();
    };
    table.sw_params = [](snd_pcm_ioplug_t* io, snd_pcm_sw_params_t* params) {
        return cardOf(io).swParams(params);
    };
    table.prepare = [](snd_pcm_ioplug_t* io) { return cardOf(io).prepare(); };
    table.drain = [](snd_pcm_ioplug_t* io) { return cardOf(io).drain(); };
    // ALSA reports that a card can pause if and only if it has this callback.
    if (canPause) {
        table.pause = [](snd_pcm_ioplug_t* io, int enable) {
            return cardOf(io).pause(enable != 0);
        };
    }
    table.delay = [](snd_pcm_ioplug_t* io, snd_pcm_sframes_t* frames) {
        return cardOf(io).delay(*frames);
    };
    table.poll_descriptors = [](snd_pcm_ioplug_t* io, pollfd* descriptors, unsigned space) {
        return cardOf(io).pollDescriptors(descriptors, space);
    };
    table.poll_revents = [](snd_pcm_ioplug_t* io, pollfd*, unsigned, unsigned short* revents) {
        return cardOf(io).pollRevents(revents);
    };
    table.get_chmap = [](snd_pcm_ioplug_t* io) { return cardOf(io).channelMap(); };
    return table;
}

const snd_pcm_ioplug_callback_t* callbacks(bool canPause)
{
    static const snd_pcm_ioplug_callback_t withPause = makeCallbacks(true);
    static const snd_pcm_ioplug_callback_t withoutPause = makeCallbacks(false);
    return canPause ? &withPause : &withoutPause;
}

/// The format of the file.
WavLayout wavLayout(const snd_pcm_ioplug_t& io)
{
    WavLayout layout;
    layout.rate = io.rate;
    layout.channels = io.channels;
    // The fourth byte of S24_LE is padding.
    layout.sampleSize = static_cast<unsigned>(snd_pcm_format_width(io.format)) / 8;
    layout.isFloat = snd_pcm_format_float(io.format) == 1;
    return layout;
}

} // namespace

// ---- Opening and closing ----------------------------------------------------------------------

VirtualSoundCard::VirtualSoundCard(CardSettings cardSettings) : settings(std::move(cardSettings))
{
}

VirtualSoundCard::~VirtualSoundCard()
{
    if (!io.pcm) {
        return;
    }
    // ALSA has stopped the stream.
    wav.finish();
    events.add(monotonicNow(), "close", std::to_string(total));
}

int VirtualSoundCard::open(const char* name, snd_pcm_stream_t stream, int mode)
{
    if (stream != SND_PCM_STREAM_PLAYBACK) {
        return -ENOENT;
    }
    int error = events.open(settings.events);
    if (error < 0) {
        SNDERR("virtualcard: %s: %s", settings.events.c_str(), std::strerror(-error));
        return error;
    }
    // An unplugged card stays unplugged for all processes, as its event file records.
    if (settings.vanishAfter >= 0 && events.contains("vanished")) {
        return -ENODEV;
    }
    if (settings.refuse == CardSettings::Refuse::Open) {
        events.add(monotonicNow(), "refused", "open");
        return -EBUSY;
    }
    error = takeExclusively();
    if (error == 0) {
        error = createPcm(name, stream, mode);
    }
    if (error == 0) {
        events.add(monotonicNow(), "open", name);
    }
    return error;
}

/// Like hardware, a card serves one client at a time. Otherwise the clients' output would be mixed
/// up in the files.
int VirtualSoundCard::takeExclusively()
{
    const std::string& path = settings.events.empty() ? settings.record : settings.events;
    if (path.empty()) {
        return 0;
    }
    lock = Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!lock) {
        const int error = errno;
        SNDERR("virtualcard: %s: %s", path.c_str(), std::strerror(error));
        return -error;
    }
    return ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : -EBUSY;
}

int VirtualSoundCard::createPcm(const char* name, snd_pcm_stream_t stream, int mode)
{
    timer = Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!timer) {
        return -errno;
    }
    io.version = SND_PCM_IOPLUG_VERSION;
    io.name = "Virtual sound card";
    io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    io.poll_fd = timer.get();
    io.poll_events = POLLIN;
    io.mmap_rw = 1;
    // ALSA reports later changes only, not the mode of the opening.
    io.nonblock = (mode & SND_PCM_NONBLOCK) != 0 ? 1 : 0;
    io.callback = callbacks(settings.canPause);
    io.private_data = this;
    int error = snd_pcm_ioplug_create(&io, name, stream, mode);
    if (error < 0) {
        return error;
    }
    error = setConstraints();
    if (error < 0) {
        // Deleting the PCM would delete this object through the close function.
        static const snd_pcm_ioplug_callback_t none = [] {
            snd_pcm_ioplug_callback_t table = makeCallbacks(false);
            table.close = nullptr;
            return table;
        }();
        io.callback = &none;
        snd_pcm_ioplug_delete(&io);
        io.pcm = nullptr;
    }
    return error;
}

int VirtualSoundCard::setConstraints()
{
    static const std::array<unsigned, 4> accesses = {
        SND_PCM_ACCESS_MMAP_INTERLEAVED, SND_PCM_ACCESS_MMAP_NONINTERLEAVED,
        SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_ACCESS_RW_NONINTERLEAVED};
    static const std::array<unsigned, 7> formats = {
        SND_PCM_FORMAT_U8,        SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S24_3LE,
        SND_PCM_FORMAT_S24_LE,    SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_FLOAT_LE,
        SND_PCM_FORMAT_FLOAT64_LE};
    struct Range
    {
        int parameter;
        unsigned min;
        unsigned max;
    };
    // ALSA limits a plug-in's buffer in bytes only. The largest buffer holds a third of a
    // second in the widest format and about eleven seconds in the most common one.
    static const std::array<Range, 5> ranges = {{
        {SND_PCM_IOPLUG_HW_CHANNELS, 1, maxChannels},
        {SND_PCM_IOPLUG_HW_RATE, 8000, 192000},
        {SND_PCM_IOPLUG_HW_PERIOD_BYTES, 64, 1U << 20U},
        {SND_PCM_IOPLUG_HW_BUFFER_BYTES, 128, 1U << 21U},
        {SND_PCM_IOPLUG_HW_PERIODS, 2, 1024},
    }};
    int error = snd_pcm_ioplug_set_param_list(&io, SND_PCM_IOPLUG_HW_ACCESS, accesses.size(),
                                              accesses.data());
    if (error == 0) {
        error = snd_pcm_ioplug_set_param_list(&io, SND_PCM_IOPLUG_HW_FORMAT, formats.size(),
                                              formats.data());
    }
    for (const Range& range : ranges) {
        if (error == 0) {
            error = snd_pcm_ioplug_set_param_minmax(&io, range.parameter, range.min, range.max);
        }
    }
    return error;
}

// ---- Setting up -------------------------------------------------------------------------------

int VirtualSoundCard::hwParams()
{
    const std::lock_guard<std::mutex> guard(mutex);
    if (gone) {
        return -ENODEV;
    }
    const Nanoseconds now = monotonicNow();
    // Refuse only now, when the format is set: GStreamer's sink fails differently on a card that
    // lists no known format or rate.
    if (settings.refuse == CardSettings::Refuse::Format ||
        settings.refuse == CardSettings::Refuse::Rate) {
        events.add(now, "refused",
                   settings.refuse == CardSettings::Refuse::Rate ? "rate" : "format");
        return -EINVAL;
    }
    clock.configure(io.rate, settings.speed);
    const int error = settings.record.empty() ? 0 : wav.open(settings.record, wavLayout(io));
    if (error < 0) {
        SNDERR("virtualcard: %s: %s", settings.record.c_str(), std::strerror(-error));
        return error;
    }
    events.add(now, "configure",
               snd_pcm_format_name(io.format) + (' ' + std::to_string(io.rate)) + ' ' +
                   std::to_string(io.channels) + ' ' + std::to_string(io.buffer_size) + ' ' +
                   std::to_string(io.period_size));
    return 0;
}

int VirtualSoundCard::swParams(snd_pcm_sw_params_t* params)
{
    const std::lock_guard<std::mutex> guard(mutex);
    snd_pcm_sw_params_get_avail_min(params, &availMin);
    snd_pcm_sw_params_get_boundary(params, &boundary);
    return 0;
}

/// ALSA's channel positions by number of channels, in the order of WAV files, so that samples from
/// such a file pass through unchanged.
snd_pcm_chmap_t* VirtualSoundCard::channelMap() const
{
    static const std::array<std::array<unsigned, maxChannels>, maxChannels> maps = {{
        {SND_CHMAP_MONO},
        {SND_CHMAP_FL, SND_CHMAP_FR},
        {SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_FC},
        {SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_RL, SND_CHMAP_RR},
        {SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_FC, SND_CHMAP_RL, SND_CHMAP_RR},
        {SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_FC, SND_CHMAP_LFE, SND_CHMAP_RL, SND_CHMAP_RR},
        {SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_FC, SND_CHMAP_LFE, SND_CHMAP_RC, SND_CHMAP_SL,
         SND_CHMAP_SR},
        {SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_FC, SND_CHMAP_LFE, SND_CHMAP_RL, SND_CHMAP_RR,
         SND_CHMAP_SL, SND_CHMAP_SR},
    }};
    const unsigned channels = io.channels;
    if (channels < 1 || channels > maxChannels) {
        return nullptr;
    }
    // The caller releases it with free().
    auto* map = static_cast<snd_pcm_chmap_t*>(
        std::malloc(sizeof(snd_pcm_chmap_t) + channels * sizeof(unsigned)));
    if (map) {
        map->channels = channels;
        std::copy_n(maps[channels - 1].begin(), channels, map->pos);
    }
    return map;
}

int VirtualSoundCard::prepare()
{
    const std::lock_guard<std::mutex> guard(mutex);
    started = false;
    armTimer();
    return gone ? -ENODEV : 0;
}

// ---- Starting and stopping --------------------------------------------------------------------

int VirtualSoundCard::start()
{
    const std::lock_guard<std::mutex> guard(mutex);
    if (gone) {
        return -ENODEV;
    }
    begin(monotonicNow());
    return 0;
}

void VirtualSoundCard::begin(Nanoseconds now)
{
    started = true;
    paused = false;
    played = 0;
    allowed = 0;
    polledAt = now;
    busySince = 0;
    clock.set(now, 0);
    events.add(now, "first-frame");
    armTimer();
}

int VirtualSoundCard::stop()
{
    const std::lock_guard<std::mutex> guard(mutex);
    const Nanoseconds now = monotonicNow();
    if (started) {
        const snd_pcm_uframes_t left = queued() - catchUp(now);
        if (io.state == SND_PCM_STATE_DRAINING && left == 0) {
            events.add(clock.timeOf(played), "drained", std::to_string(total));
        } else if (!gone) {
            events.add(now, "stop", std::to_string(left));
        }
    }
    started = false;
    wav.finish();
    return 0;
}

int VirtualSoundCard::pause(bool enable)
{
    const std::lock_guard<std::mutex> guard(mutex);
    if (gone) {
        return -ENODEV;
    }
    const Nanoseconds now = monotonicNow();
    if (enable) {
        // The frames due until now are played by the next call, and no others.
        const auto available = static_cast<std::int64_t>(queued());
        pausedAt = std::min(clock.framesAt(now), played + available);
    } else {
        clock.set(now, pausedAt);
    }
    paused = enable;
    events.add(now, enable ? "pause" : "resume");
    armTimer();
    return 0;
}

int VirtualSoundCard::drain()
{
    {
        const std::lock_guard<std::mutex> guard(mutex);
        if (gone) {
            return -ENODEV;
        }
        // ALSA does not start a stream that was too short to start by itself.
        const Nanoseconds now = monotonicNow();
        events.add(now, "drain");
        if (!started) {
            begin(now);
        }
    }
    return waitForEnd();
}

int VirtualSoundCard::waitForEnd()
{
    for (;;) {
        // This call changes the state when the last frame has been played.
        snd_pcm_avail_update(io.pcm);
        {
            const std::lock_guard<std::mutex> guard(mutex);
            if (gone || io.state != SND_PCM_STATE_DRAINING) {
                return gone ? -ENODEV : 0;
            }
            armTimer();
        }
        if (io.nonblock != 0) {
            return -EAGAIN;
        }
        pollfd wait = {timer.get(), POLLIN, 0};
        if (::poll(&wait, 1, settings.stallAfter >= 0 ? stalledDrain : -1) == 0) {
            return -EIO;
        }
    }
}

// ---- Playing ----------------------------------------------------------------------------------

/// Returns the frames in the buffer that have not been played.
snd_pcm_uframes_t VirtualSoundCard::queued() const
{
    return boundary == 0 ? 0 : (io.appl_ptr + boundary - io.hw_ptr) % boundary;
}

std::int64_t VirtualSoundCard::clockFrames(Nanoseconds now) const
{
    return paused ? pausedAt : clock.framesAt(now);
}

/// Returns the number of frames that are due, whether they were written or not.
std::int64_t VirtualSoundCard::due(Nanoseconds now) const
{
    std::int64_t frames = clockFrames(now) - played;
    if (settings.stallAfter >= 0) {
        frames = std::min(frames, settings.stallAfter - total);
    }
    if (settings.vanishAfter >= 0) {
        frames = std::min(frames, settings.vanishAfter - total);
    }
    if (waitsForClient()) {
        frames = std::min(frames, allowed - played);
    }
    return std::max<std::int64_t>(frames, 0);
}

/// Plays the frames that are due. ALSA's position is not updated yet when this returns.
/// @return the number of frames
snd_pcm_uframes_t VirtualSoundCard::catchUp(Nanoseconds now)
{
    const snd_pcm_uframes_t frames = std::min(queued(), static_cast<snd_pcm_uframes_t>(due(now)));
    record(io.hw_ptr, frames);
    played += static_cast<std::int64_t>(frames);
    total += static_cast<std::int64_t>(frames);
    if (total == settings.vanishAfter) {
        vanish(clock.timeOf(played));
    }
    return frames;
}

void VirtualSoundCard::vanish(Nanoseconds when)
{
    gone = true;
    started = false;
    events.add(when, "vanished", std::to_string(total));
    snd_pcm_ioplug_set_state(&io, SND_PCM_STATE_DISCONNECTED);
}

void VirtualSoundCard::underrun(Nanoseconds when)
{
    started = false;
    events.add(when, "xrun", std::to_string(total));
    wav.finish();
}

snd_pcm_sframes_t VirtualSoundCard::pointer()
{
    const std::lock_guard<std::mutex> guard(mutex);
    snd_pcm_uframes_t position = io.hw_ptr;
    if (started) {
        const Nanoseconds now = monotonicNow();
        const bool isDraining = io.state == SND_PCM_STATE_DRAINING;
        const snd_pcm_uframes_t available = queued();
        allowWithoutPolling(now);
        const snd_pcm_uframes_t frames = catchUp(now);
        position = (position + frames) % boundary;
        if (started && !isDraining && frames == available && due(now) > 0) {
            if (!waitsForClient()) {
                underrun(clock.timeOf(played));
                return -EPIPE;
            }
            clock.set(now, played);
        }
    }
    return static_cast<snd_pcm_sframes_t>(position);
}

int VirtualSoundCard::delay(snd_pcm_sframes_t& frames)
{
    const std::lock_guard<std::mutex> guard(mutex);
    if (gone) {
        return -ENODEV;
    }
    auto left = static_cast<std::int64_t>(queued());
    if (started) {
        left = std::max<std::int64_t>(left - due(monotonicNow()), 0);
    }
    frames = static_cast<snd_pcm_sframes_t>(left);
    return 0;
}

// ---- Recording --------------------------------------------------------------------------------

/// Records frames of the ring buffer, beginning at ALSA's `position`.
void VirtualSoundCard::record(snd_pcm_uframes_t position, snd_pcm_uframes_t frames)
{
    const std::size_t frameSize = wavLayout(io).frameSize();
    while (frames > 0 && !settings.record.empty()) {
        const snd_pcm_uframes_t offset = position % io.buffer_size;
        const snd_pcm_uframes_t run = std::min(frames, io.buffer_size - offset);
        const int error = wav.append(inFileOrder(offset, run), run * frameSize);
        if (error < 0 && !writeFailed) {
            writeFailed = true;
            SNDERR("virtualcard: %s: %s", settings.record.c_str(), std::strerror(-error));
        }
        position += run;
        frames -= run;
    }
}

/// Returns frames interleaved and without the padding bytes of S24_LE: the ring buffer itself if it
/// has this layout, otherwise a copy.
const char* VirtualSoundCard::inFileOrder(snd_pcm_uframes_t offset, snd_pcm_uframes_t frames)
{
    const snd_pcm_channel_area_t* areas = snd_pcm_ioplug_mmap_areas(&io);
    const WavLayout layout = wavLayout(io);
    const auto address = [areas, offset](unsigned channel, std::size_t frame) {
        const snd_pcm_channel_area_t& area = areas[channel];
        const std::size_t bits = area.first + (offset + frame) * area.step;
        return static_cast<const char*>(area.addr) + bits / 8;
    };
    const bool isInterleaved =
        io.access == SND_PCM_ACCESS_RW_INTERLEAVED || io.access == SND_PCM_ACCESS_MMAP_INTERLEAVED;
    if (isInterleaved && areas[0].step == 8 * layout.frameSize()) {
        return address(0, 0);
    }
    packed.resize(frames * layout.frameSize());
    char* out = packed.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (unsigned channel = 0; channel < layout.channels; ++channel) {
            std::memcpy(out, address(channel, frame), layout.sampleSize);
            out += layout.sampleSize;
        }
    }
    return packed.data();
}
