#ifndef VIRTUALCARD_WAV_RECORD_H
#define VIRTUALCARD_WAV_RECORD_H

#include "Descriptor.h"
#include "wav/Wav.h"

#include <cstddef>
#include <string>

/// The WAV file that a card records to. Existing content is preserved: the same layout is appended,
/// another one goes to a further file ("name-2.wav", "name-3.wav", …). A file without samples is
/// used for any layout. The file contains samples as soon as they are played; its header states
/// their size after each finish().
class WavRecord
{
public:
    WavRecord() = default;
    ~WavRecord() { finish(); }
    WavRecord(const WavRecord&) = delete;
    WavRecord& operator=(const WavRecord&) = delete;

    /// Opens the file, or the first of the further files that has this layout or does not exist.
    /// @return 0 or a negative errno
    int open(const std::string& path, const WavLayout& layout);

    /// Appends samples to the open file.
    /// @return 0 or a negative errno
    int append(const char* samples, std::size_t size);

    /// Updates the header with the size of all samples. More may be appended afterwards.
    void finish();

private:
    bool adopt(Descriptor&& candidate);

    Descriptor file;
    WavLayout layout;
    std::size_t headerSize = 0;
    std::uint64_t dataSize = 0;
};

#endif
