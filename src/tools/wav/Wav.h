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

/// Returns the whole header of a WAV file, up to the first sample.
/// @param dataSize  bytes of all samples
std::string wavHeader(const WavLayout& layout, std::uint64_t dataSize);

/// Whether two headers differ in nothing but the size of the data.
bool isSameWav(const std::string& header, const std::string& other);

/// What is in the bytes of a WAV file.
struct WavContent
{
    WavLayout layout;
    std::size_t headerSize = 0; ///< position of the first sample, in bytes
    std::uint64_t dataSize = 0; ///< bytes of the whole frames that are there
};

/// Reads a header as wavHeader() writes it.
/// @param bytes     the beginning of the file, at least its header
/// @param fileSize  bytes of the whole file. It decides over the size of the data: a file that is
///                  still written, or whose writer was killed, has an outdated header
/// @return the content; nothing when the bytes are no such header
std::optional<WavContent> readWav(const std::string& bytes, std::uint64_t fileSize);

/// The size of the header that wavHeader() writes is at most this.
constexpr std::size_t largestWavHeader = 68;

#endif
