// Copies a file into a FIFO: pipewriter FIFO FILE CHUNK PAUSE_MS
//
// Says "opened" when the FIFO has a reader and "written" when all is in it, and then holds the FIFO
// open until its standard input ends. Ends with status 0, or with 1 and a reason on stderr.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
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

static bool writeAll(int fifo, const char* bytes, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fifo, bytes, size);
        if (written < 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

static void waitForEndOfInput()
{
    char ignored = 0;
    while (::read(STDIN_FILENO, &ignored, 1) > 0) {
    }
}

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::cerr << "usage: pipewriter FIFO FILE CHUNK PAUSE_MS\n";
        return EXIT_FAILURE;
    }
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // a reader that goes is an error of write()
    const int source = ::open(argv[2], O_RDONLY | O_CLOEXEC);
    const int fifo = ::open(argv[1], O_WRONLY | O_CLOEXEC);
    if (source < 0 || fifo < 0) {
        return fail("open");
    }
    std::cout << "opened" << std::endl;
    std::vector<char> chunk(std::strtoul(argv[3], nullptr, 10));
    const std::chrono::milliseconds pause(std::strtoul(argv[4], nullptr, 10));
    for (ssize_t n = 0; (n = ::read(source, chunk.data(), chunk.size())) > 0;) {
        if (!writeAll(fifo, chunk.data(), static_cast<std::size_t>(n))) {
            return fail("write");
        }
        std::this_thread::sleep_for(pause);
    }
    std::cout << "written" << std::endl;
    waitForEndOfInput();
    return EXIT_SUCCESS;
}
