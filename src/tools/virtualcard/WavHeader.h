#ifndef VIRTUALCARD_WAV_HEADER_H
#define VIRTUALCARD_WAV_HEADER_H

#include <cstdint>
#include <string>

/// How frames lie in a WAV file.
struct WavLayout
{
    unsigned rate = 0;       ///< frames per second
    unsigned channels = 0;   ///< in the order of the file format: left, right, centre, low, …
    unsigned sampleSize = 0; ///< bytes of one sample, little endian
    bool isFloat = false;

    unsigned frameSize() const { return channels * sampleSize; }
};

/// The whole header of a WAV file, up to the first sample.
/// @param dataSize  bytes of all samples
std::string wavHeader(const WavLayout& layout, std::uint64_t dataSize);

/// Whether a file's header differs from another one in nothing but the size of the data.
bool isSameWav(const std::string& header, const std::string& other);

/// The size of the data that a header made by wavHeader() tells.
std::uint64_t wavDataSize(const std::string& header);

#endif
