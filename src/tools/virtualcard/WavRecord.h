#ifndef VIRTUALCARD_WAV_RECORD_H
#define VIRTUALCARD_WAV_RECORD_H

#include "Descriptor.h"
#include "wav/Wav.h"

#include <cstddef>
#include <string>

/// The WAV file that a card plays into. What is there is never lost: the same layout appends,
/// another one goes to a file beside it ("name-2.wav", "name-3.wav", …). The samples are in the
/// file as soon as they are played; its header tells their size after each finish().
class WavRecord
{
public:
    WavRecord() = default;
    ~WavRecord() { finish(); }
    WavRecord(const WavRecord&) = delete;
    WavRecord& operator=(const WavRecord&) = delete;

    /// Opens the file or the first one beside it that has this layout or does not exist.
    /// @return 0 or a negative errno
    int open(const std::string& path, const WavLayout& layout);

    /// Adds samples to the file that is open.
    /// @return 0 or a negative errno
    int append(const char* samples, std::size_t size);

    /// Makes the header right for all that has been added. More may be added afterwards.
    void finish();

private:
    bool adopt(Descriptor&& candidate);

    Descriptor file;
    WavLayout layout;
    std::size_t headerSize = 0;
    std::uint64_t dataSize = 0;
};

#endif
