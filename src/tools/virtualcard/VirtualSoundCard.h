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

/// One opened card. ALSA keeps the ring buffer and the state of the stream; the card plays what is
/// in the buffer.
///
/// The card has no thread. Every call of the client first lets the card catch up with its clock:
/// all frames whose time has come since the last call are recorded, and nothing else is. So a frame
/// that was dropped before its time is in no file, and a frame whose time had come is, to the
/// sample, however late the client calls. A timer wakes clients that wait for room.
///
/// When the card is told to wait for its client (CardSettings::Starve::Wait), its clock stands
/// while the buffer is empty, and it only goes on by one period after another, each time when no
/// other thread of the client has anything left to do. A client that is slow, on a busy machine or
/// under a memory checker, then plays slower, and not with gaps: many players fill gaps with
/// silence themselves, which no card can tell from sound.
///
/// Threads: any. ALSA holds a lock of its own around most calls, but not around the poll functions.
class VirtualSoundCard
{
public:
    explicit VirtualSoundCard(CardSettings cardSettings);
    ~VirtualSoundCard();
    VirtualSoundCard(const VirtualSoundCard&) = delete;
    VirtualSoundCard& operator=(const VirtualSoundCard&) = delete;

    /// Opens the files and the ALSA side.
    /// @param mode  of snd_pcm_open
    /// @return 0, after which ALSA closes the card, or a negative errno, after which it does not
    int open(const char* name, snd_pcm_stream_t stream, int mode);
    snd_pcm_t* pcm() const { return io.pcm; }

    // What ALSA asks of a plug-in; see snd_pcm_ioplug_callback. All return 0 or more, or a negative
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

    /// Guards everything below. ALSA's own lock is always taken first, so nothing that takes ALSA's
    /// lock may be called while this one is held.
    std::mutex mutex;
    Descriptor lock; ///< holds the card for this opening alone
    Descriptor timer;
    EventLog events;
    WavRecord wav;
    CardClock clock;
    std::vector<char> packed; ///< one run of frames as they lie in the file

    snd_pcm_uframes_t availMin = 1;
    snd_pcm_uframes_t boundary = 0; ///< where ALSA's positions start again at 0
    bool started = false;           ///< between start and stop, also while paused
    bool paused = false;
    bool gone = false;         ///< the card has vanished
    bool writeFailed = false;  ///< the record could not be written
    std::int64_t played = 0;   ///< frames since the last start
    std::int64_t total = 0;    ///< frames since the card was opened
    std::int64_t pausedAt = 0; ///< what the clock showed when the pause began

    // Only used when the card waits for its client.
    std::int64_t allowed = 0;  ///< how far `played` may go
    Nanoseconds polledAt = 0;  ///< when the client last looked whether it may write
    Nanoseconds busySince = 0; ///< since when the client was busy at each look, or 0
};

#endif
