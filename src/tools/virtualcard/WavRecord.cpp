#include "WavRecord.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

/// "name.wav", "name-2.wav", "name-3.wav", …
static std::string numbered(const std::string& path, int number)
{
    if (number == 1) {
        return path;
    }
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    const bool hasSuffix =
        dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
    const std::size_t end = hasSuffix ? dot : path.size();
    return path.substr(0, end) + '-' + std::to_string(number) + path.substr(end);
}

static std::string readHeader(int file, std::size_t size)
{
    std::string header(size, '\0');
    const ssize_t got = ::pread(file, header.data(), size, 0);
    header.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return header;
}

static int writeAt(int file, const char* bytes, std::size_t size, std::uint64_t offset)
{
    while (size > 0) {
        const ssize_t written = ::pwrite(file, bytes, size, static_cast<off_t>(offset));
        if (written < 0 && errno != EINTR) {
            return -errno;
        }
        if (written > 0) {
            bytes += written;
            size -= static_cast<std::size_t>(written);
            offset += static_cast<std::uint64_t>(written);
        }
    }
    return 0;
}

int WavRecord::open(const std::string& path, const WavLayout& wanted)
{
    finish();
    layout = wanted;
    headerSize = wavHeader(layout, 0).size();
    for (int number = 1;; ++number) {
        const std::string name = numbered(path, number);
        Descriptor candidate(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!candidate) {
            return -errno;
        }
        if (adopt(std::move(candidate))) {
            finish();
            return 0;
        }
    }
}

bool WavRecord::adopt(Descriptor&& candidate)
{
    struct stat status = {};
    if (::fstat(candidate.get(), &status) != 0) {
        return false;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const std::string header = readHeader(candidate.get(), largestWavHeader);
    const std::optional<WavContent> content = readWav(header, size);
    // A device that was configured and played nothing leaves a header only.
    const bool isEmpty = header.empty() || (content && content->dataSize == 0);
    if (!isEmpty && !isSameWav(header.substr(0, headerSize), wavHeader(layout, 0))) {
        return false;
    }
    if (isEmpty && ::ftruncate(candidate.get(), 0) != 0) {
        return false;
    }
    dataSize = content ? content->dataSize : 0;
    file = std::move(candidate);
    return true;
}

int WavRecord::append(const char* samples, std::size_t size)
{
    const int error = writeAt(file.get(), samples, size, headerSize + dataSize);
    if (error == 0) {
        dataSize += size;
    }
    return error;
}

void WavRecord::finish()
{
    if (!file) {
        return;
    }
    const std::string header = wavHeader(layout, dataSize);
    writeAt(file.get(), header.data(), header.size(), 0);
    if (dataSize % 2 == 1) {
        writeAt(file.get(), "", 1, headerSize + dataSize);
    }
}
