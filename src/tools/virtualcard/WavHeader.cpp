#include "WavHeader.h"

#include <algorithm>
#include <array>
#include <limits>

namespace {

constexpr unsigned pcmTag = 1;
constexpr unsigned floatTag = 3;
constexpr unsigned extensibleTag = 0xFFFE;
constexpr std::size_t riffSizeAt = 4;
constexpr std::size_t sizeLength = 4;

} // namespace

static void append(std::string& bytes, std::uint64_t value, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<char>(value >> (8 * i)));
    }
}

/// The loudspeakers of one to eight channels as WAV files have them; 0 leaves them open.
static unsigned speakers(unsigned channels)
{
    constexpr std::array<unsigned, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x70F, 0x63F};
    // GCOVR_EXCL_BR_START: the card has no more than eight
    return channels < masks.size() ? masks[channels] : 0;
    // GCOVR_EXCL_BR_STOP
}

/// Plain headers are only defined for one or two channels of 8 or 16 bits, and for floats.
static bool needsExtension(const WavLayout& layout)
{
    return layout.channels > 2 || (!layout.isFloat && layout.sampleSize > 2);
}

static void appendExtension(std::string& bytes, const WavLayout& layout)
{
    append(bytes, 22, 2);
    append(bytes, std::uint64_t{8} * layout.sampleSize, 2);
    append(bytes, speakers(layout.channels), 4);
    append(bytes, layout.isFloat ? floatTag : pcmTag, 2);
    // The rest of the format's GUID, which is the same for all formats with a tag.
    bytes.append("\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 14);
}

static std::string formatChunk(const WavLayout& layout)
{
    const bool extended = needsExtension(layout);
    const unsigned plainTag = layout.isFloat ? floatTag : pcmTag;
    std::string chunk = "fmt ";
    append(chunk, extended ? 40 : 16, 4);
    append(chunk, extended ? extensibleTag : plainTag, 2);
    append(chunk, layout.channels, 2);
    append(chunk, layout.rate, 4);
    append(chunk, std::uint64_t{layout.rate} * layout.frameSize(), 4);
    append(chunk, layout.frameSize(), 2);
    append(chunk, std::uint64_t{8} * layout.sampleSize, 2);
    if (extended) {
        appendExtension(chunk, layout);
    }
    return chunk;
}

std::string wavHeader(const WavLayout& layout, std::uint64_t dataSize)
{
    // A size that does not fit says "very long", which readers take as "until the end".
    constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
    const std::string format = formatChunk(layout);
    const std::uint64_t padding = dataSize % 2;
    const std::uint64_t riffSize = 4 + format.size() + 8 + dataSize + padding;
    std::string header = "RIFF";
    append(header, std::min(riffSize, largest), sizeLength);
    header += "WAVE" + format + "data";
    append(header, std::min(dataSize, largest), sizeLength);
    return header;
}

static std::string withoutSizes(const std::string& header)
{
    std::string bare = header;
    if (bare.size() >= riffSizeAt + 2 * sizeLength) {
        bare.replace(riffSizeAt, sizeLength, sizeLength, '\0');
        bare.replace(bare.size() - sizeLength, sizeLength, sizeLength, '\0');
    }
    return bare;
}

bool isSameWav(const std::string& header, const std::string& other)
{
    return withoutSizes(header) == withoutSizes(other);
}

std::uint64_t wavDataSize(const std::string& header)
{
    std::uint64_t size = 0;
    // GCOVR_EXCL_BR_START: no file of this kind has a shorter one
    for (std::size_t i = 1; i <= sizeLength && i <= header.size(); ++i) {
        // GCOVR_EXCL_BR_STOP
        size = (size << 8U) | static_cast<unsigned char>(header[header.size() - i]);
    }
    return size;
}
