// Copies a file into a FIFO: pipewriter FIFO FILE FIRST CHUNK PAUSE_MS TIMES HEADER SILENCE
// KILL_AFTER
//
// The first write has FIRST bytes, all others CHUNK, each followed by a pause; the file is
// copied TIMES times, its first HEADER bytes only once, and SILENCE zero bytes follow. Prints
// "opened" when the FIFO has a reader and "written" when all data is in it, and then keeps the FIFO
// open until its standard input ends. Exits with 0, or with 1 and a reason on stderr. Kills itself
// after KILL_AFTER bytes, unless that is negative.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <system_error>
#include <thread>
#include <vector>

static int fail(const char* what)
{
    std::cerr << "pipewriter: " << what << ": " << std::generic_category().message(errno) << '\n';
    return EXIT_FAILURE;
}

/// How many bytes may still be written before this process kills itself.
static std::size_t bytesToLive = SIZE_MAX;

static bool writeAll(int fifo, const char* bytes, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fifo, bytes, std::min(size, bytesToLive));
        if (written < 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
        bytesToLive -= static_cast<std::size_t>(written);
        if (bytesToLive == 0) {
            static_cast<void>(std::raise(SIGKILL));
        }
    }
    return true;
}

static void waitForEndOfInput()
{
    char ignored = 0;
    while (::read(STDIN_FILENO, &ignored, 1) > 0) {
    }
}

/// The arguments behind the two paths.
struct Manner
{
    std::size_t first;
    std::size_t chunk;
    std::chrono::milliseconds pause;
    unsigned long times;
    std::size_t header;
    std::size_t silence;
};

static std::vector<char> readAll(int file)
{
    std::vector<char> bytes(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)));
    const ssize_t count = ::pread(file, bytes.data(), bytes.size(), 0);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

static bool copy(const std::vector<char>& bytes, int fifo, const Manner& manner)
{
    std::size_t size = manner.first;
    for (unsigned long time = 0; time < manner.times; ++time) {
        for (std::size_t done = time == 0 ? 0 : manner.header; done < bytes.size();) {
            size = std::min(size, bytes.size() - done);
            if (!writeAll(fifo, bytes.data() + done, size)) {
                return false;
            }
            done += size;
            size = manner.chunk;
            std::this_thread::sleep_for(manner.pause);
        }
    }
    const std::vector<char> silence(manner.silence);
    return writeAll(fifo, silence.data(), silence.size());
}

static unsigned long number(const char* text)
{
    return std::strtoul(text, nullptr, 10);
}

int main(int argc, char** argv)
{
    if (argc != 10) {
        std::cerr << "usage: pipewriter FIFO FILE FIRST CHUNK PAUSE_MS TIMES HEADER SILENCE "
                     "KILLED_AFTER\n";
        return EXIT_FAILURE;
    }
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // without a reader, write() fails
    const Manner manner{
        number(argv[3]), number(argv[4]), std::chrono::milliseconds(number(argv[5])),
        number(argv[6]), number(argv[7]), number(argv[8])};
    if (manner.first == 0 || manner.chunk == 0) {
        std::cerr << "pipewriter: a write of no bytes never ends\n";
        return EXIT_FAILURE;
    }
    const int source = ::open(argv[2], O_RDONLY | O_CLOEXEC);
    const int fifo = ::open(argv[1], O_WRONLY | O_CLOEXEC);
    if (source < 0 || fifo < 0) {
        return fail("open");
    }
    std::cout << "opened" << std::endl;
    if (*argv[9] != '-') {
        bytesToLive = number(argv[9]);
    }
    if (bytesToLive == 0) {
        static_cast<void>(std::raise(SIGKILL));
    }
    if (!copy(readAll(source), fifo, manner)) {
        return fail("write");
    }
    std::cout << "written" << std::endl;
    waitForEndOfInput();
    return EXIT_SUCCESS;
}
