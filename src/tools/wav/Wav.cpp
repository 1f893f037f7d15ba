#include "Wav.h"

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

/// The loudspeaker masks of WAV files for one to eight channels; 0 leaves them unspecified.
static unsigned speakers(unsigned channels)
{
    constexpr std::array<unsigned, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x70F, 0x63F};
    return channels < masks.size() ? masks[channels] : 0;
}

/// A plain header does not specify the loudspeakers of more than two channels. Other files omit the
/// extension: GStreamer's sink fails an assertion for mono with a position.
static bool needsExtension(const WavLayout& layout)
{
    return layout.channels > 2;
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
    // For a size that does not fit, readers interpret the largest value as "until the end".
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

static std::uint64_t numberAt(const std::string& bytes, std::size_t offset, std::size_t size)
{
    std::uint64_t number = 0;
    for (std::size_t i = size; i-- > 0;) {
        number = (number << 8U) | static_cast<unsigned char>(bytes[offset + i]);
    }
    return number;
}

/// Returns the layout that a format chunk describes. @param at  position of the chunk's content
static WavLayout readLayout(const std::string& bytes, std::size_t at, std::size_t size)
{
    constexpr std::size_t extendedTagAt = 24;
    std::uint64_t tag = numberAt(bytes, at, 2);
    if (tag == extensibleTag && size > extendedTagAt) {
        tag = numberAt(bytes, at + extendedTagAt, 2);
    }
    return {static_cast<unsigned>(numberAt(bytes, at + 4, 4)),
            static_cast<unsigned>(numberAt(bytes, at + 2, 2)),
            static_cast<unsigned>(numberAt(bytes, at + 14, 2) / 8), tag == floatTag};
}

/// Returns the bytes of whole frames after the header. A padding byte follows an odd number of
/// bytes.
static std::uint64_t framesThere(std::uint64_t there, std::uint64_t stated, unsigned frameSize)
{
    there -= frameSize > 0 ? there % frameSize : 0;
    return stated % 2 == 1 && there == stated + 1 ? stated : there;
}

std::optional<WavContent> readWav(const std::string& bytes, std::uint64_t fileSize)
{
    constexpr std::size_t formatAt = 12;
    constexpr std::size_t contentAt = formatAt + 8;
    if (bytes.size() < contentAt || bytes.compare(0, 4, "RIFF") != 0 ||
        bytes.compare(formatAt, 4, "fmt ") != 0) {
        return std::nullopt;
    }
    const std::uint64_t formatSize = numberAt(bytes, formatAt + 4, 4);
    const std::uint64_t dataAt = contentAt + formatSize;
    if (formatSize < 16 || bytes.size() < dataAt + 8 || fileSize < dataAt + 8 ||
        bytes.compare(static_cast<std::size_t>(dataAt), 4, "data") != 0) {
        return std::nullopt;
    }
    WavContent content;
    content.layout = readLayout(bytes, contentAt, static_cast<std::size_t>(formatSize));
    content.headerSize = static_cast<std::size_t>(dataAt) + 8;
    content.dataSize = framesThere(fileSize - content.headerSize,
                                   numberAt(bytes, content.headerSize - sizeLength, sizeLength),
                                   content.layout.frameSize());
    return content;
}
