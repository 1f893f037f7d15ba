#ifndef VIRTUALCARD_VIRTUAL_SOUND_CARD_H
#define VIRTUALCARD_VIRTUAL_SOUND_CARD_H

#include "CardClock.h"
#include "CardSettings.h"
#include "Descriptor.h"
#include "EventLog.h"
#include "WavRecord.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <cstdint>
#include <mutex>
#include <vector>

/// One opened card. ALSA owns the ring buffer and the state of the stream; the card plays what is
/// in the buffer.
///
/// The card has no thread. Every call of the client first advances the card to the time of its
/// clock: it records exactly the frames that became due since the last call. A frame that is
/// dropped before it is due is in no file, and a frame that is due is recorded, however late the
/// client calls. A timer wakes clients that wait for room.
///
/// With CardSettings::Starve::Wait, the clock is suspended while the buffer is empty, and advances
/// by one period at a time, when no other thread of the client is runnable. A slow client, on a
/// busy machine or under a memory checker, then plays slower instead of with gaps. Many players
/// fill gaps with silence, which a card cannot distinguish from sound.
///
/// Thread safety: any thread. ALSA holds its own lock around most calls, but not around the poll
/// functions.
class VirtualSoundCard
{
public:
    explicit VirtualSoundCard(CardSettings cardSettings);
    ~VirtualSoundCard();
    VirtualSoundCard(const VirtualSoundCard&) = delete;
    VirtualSoundCard& operator=(const VirtualSoundCard&) = delete;

    /// Opens the files and the ALSA side.
    /// @param mode  of snd_pcm_open
    /// @return 0: ALSA will close the card; or a negative errno: it will not
    int open(const char* name, snd_pcm_stream_t stream, int mode);
    snd_pcm_t* pcm() const { return io.pcm; }

    // The callbacks of a plug-in; see snd_pcm_ioplug_callback. They return 0 or more, or a negative
    // errno.
    int start();
    int stop();
    snd_pcm_sframes_t pointer();
    int hwParams();
    int swParams(snd_pcm_sw_params_t* params);
    int prepare();
    int drain();
    int pause(bool enable);
    int delay(snd_pcm_sframes_t& frames);
    int pollDescriptors(pollfd* descriptors, unsigned space);
    int pollRevents(unsigned short* revents);
    snd_pcm_chmap_t* channelMap() const;

private:
    int takeExclusively();
    int createPcm(const char* name, snd_pcm_stream_t stream, int mode);
    int setConstraints();

    void begin(Nanoseconds now);
    int waitForEnd();
    snd_pcm_uframes_t queued() const;
    std::int64_t clockFrames(Nanoseconds now) const;
    std::int64_t due(Nanoseconds now) const;
    snd_pcm_uframes_t catchUp(Nanoseconds now);
    void vanish(Nanoseconds when);
    void underrun(Nanoseconds when);

    bool waitsForClient() const;
    Nanoseconds restingSince();
    void allowNextPeriod(Nanoseconds now);
    void allowWithoutPolling(Nanoseconds now);
    void lookAfterClient();

    void record(snd_pcm_uframes_t position, snd_pcm_uframes_t frames);
    const char* inFileOrder(snd_pcm_uframes_t offset, snd_pcm_uframes_t frames);

    unsigned short pollEvents() const;
    bool hasRoom() const;
    void armTimer();
    Nanoseconds wakeTime() const;
    Nanoseconds timeOfChange() const;

    const CardSettings settings;
    snd_pcm_ioplug_t io{};

    /// Protects all members below. ALSA's own lock is always taken first: call nothing that takes
    /// ALSA's lock while this one is held.
    std::mutex mutex;
    Descriptor lock; ///< ensures that the card is opened once
    Descriptor timer;
    EventLog events;
    WavRecord wav;
    CardClock clock;
    std::vector<char> packed; ///< consecutive frames in the layout of the file

    snd_pcm_uframes_t availMin = 1;
    snd_pcm_uframes_t boundary = 0; ///< where ALSA's positions wrap to 0
    bool started = false;           ///< between start and stop, also while paused
    bool paused = false;
    bool gone = false;         ///< the card has vanished
    bool writeFailed = false;  ///< the record could not be written
    std::int64_t played = 0;   ///< frames since the last start
    std::int64_t total = 0;    ///< frames since the card was opened
    std::int64_t pausedAt = 0; ///< the clock when the pause began

    // Used only if the card waits for its client.
    std::int64_t allowed = 0;  ///< the limit of `played`
    Nanoseconds polledAt = 0;  ///< when the client last polled
    Nanoseconds busySince = 0; ///< since when every check found the client busy, or 0
};

#endif
