#ifndef KOVA_WAV_H
#define KOVA_WAV_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// WAV files, without any dependency: the virtual sound card writes them, and tests and benchmark
// write and read them.

/// The layout of the frames in a WAV file.
struct WavLayout
{
    unsigned rate = 0;       ///< frames per second
    unsigned channels = 0;   ///< in the order of the file format: left, right, centre, LFE, …
    unsigned sampleSize = 0; ///< bytes of one sample, little endian
    bool isFloat = false;

    unsigned frameSize() const { return channels * sampleSize; }
};

/// Returns the header of a WAV file, up to the first sample.
/// @param dataSize  bytes of all samples
std::string wavHeader(const WavLayout& layout, std::uint64_t dataSize);

/// Whether two headers are equal except for the size of the data.
bool isSameWav(const std::string& header, const std::string& other);

/// The content of a WAV file.
struct WavContent
{
    WavLayout layout;
    std::size_t headerSize = 0; ///< position of the first sample, in bytes
    std::uint64_t dataSize = 0; ///< bytes of the whole frames in the file
};

/// Reads a header in the form that wavHeader() writes.
/// @param bytes     the beginning of the file, at least its header
/// @param fileSize  bytes of the whole file. It determines the size of the data, because the header
///                  is outdated while the file is written or after its writer was killed
/// @return the content; none if the bytes are not such a header
std::optional<WavContent> readWav(const std::string& bytes, std::uint64_t fileSize);

/// The largest size of a header that wavHeader() writes.
constexpr std::size_t largestWavHeader = 68;

#endif
