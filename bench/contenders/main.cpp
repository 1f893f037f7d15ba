// The program around each contender. It plays and prints times and resources for bench/run.
//
//     NAME MODE ITEM DEVICE COUNT
//
//     sequence   COUNT players, one after the other
//     together   COUNT players at once, on the devices DEVICE1, DEVICE2 …
//     idle       COUNT players, none of them started
//     playing    like together, until standard input has a line
//     loop       one player that repeats the item until the process is killed

#include "Contender.h"
#include "PeakMemory.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <malloc.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Options
{
    std::string mode;
    std::string item;
    std::string device;
    int count = 0;
};

struct Times
{
    long long start = 0;
    long long outcome = 0;
};

} // namespace

static long long now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

static void print(const Times& times)
{
    std::printf("play %lld %lld\n", times.start, times.outcome);
    std::fflush(stdout);
}

static long entriesOf(const char* folder)
{
    long entries = -2; // "." and ".."
    DIR* stream = opendir(folder);
    while (readdir(stream)) {
        ++entries;
    }
    closedir(stream);
    return entries;
}

static long residentBytes()
{
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

/// Prints the resources of the process, without the descriptor and the threads used for this.
/// @param watchers  number of threads that do not belong to the contender
static void printResources(int players, int watchers)
{
    const long threads = entriesOf("/proc/self/task") - watchers;
    const long descriptors = entriesOf("/proc/self/fd") - 1;
    const struct mallinfo2 heap = mallinfo2();
    std::printf("resources %d %zu %ld %ld %ld\n", players, heap.uordblks + heap.hblkhd,
                residentBytes(), threads, descriptors);
    std::fflush(stdout);
}

/// Loads the plug-in of the virtual sound card, which ALSA would load when it first opens the card.
/// A sound card needs no plug-in, so this time is not part of any start.
static void loadCard()
{
    const char* plugin = std::getenv("KOVA_BENCH_CARD");
    if (plugin && !dlopen(plugin, RTLD_NOW)) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(1);
    }
}

static void failUnless(bool ended)
{
    if (!ended) {
        std::fprintf(stderr, "the playback failed\n");
        std::exit(1);
    }
}

static void playInSequence(const Options& options)
{
    for (int i = 0; i < options.count; ++i) {
        Times times;
        const auto playback =
            contender::prepare(options.item, options.device, false, [&times](bool ended) {
                times.outcome = now();
                failUnless(ended);
                contender::quitLoop();
            });
        times.start = now();
        playback->start();
        contender::runLoop();
        print(times);
    }
}

static void playTogether(const Options& options)
{
    std::vector<Times> times(static_cast<std::size_t>(options.count));
    std::vector<std::unique_ptr<Playback>> playbacks;
    int left = options.count;
    for (Times& mine : times) {
        const std::string device = options.device + std::to_string(playbacks.size() + 1);
        playbacks.push_back(
            contender::prepare(options.item, device, false, [&mine, &left](bool ended) {
                mine.outcome = now();
                failUnless(ended);
                if (--left == 0) {
                    contender::quitLoop();
                }
            }));
    }
    for (std::size_t i = 0; i < playbacks.size(); ++i) {
        times[i].start = now();
        playbacks[i]->start();
    }
    contender::runLoop();
    for (const Times& mine : times) {
        print(mine);
    }
}

static void stayIdle(const Options& options)
{
    std::vector<std::unique_ptr<Playback>> playbacks;
    playbacks.reserve(static_cast<std::size_t>(options.count));
    while (static_cast<int>(playbacks.size()) < options.count) {
        playbacks.push_back(contender::prepare(options.item, options.device, false, failUnless));
        if (playbacks.size() == 1) {
            printResources(1, 0);
        }
    }
    printResources(options.count, 0);
}

static void playUntilAsked(const Options& options)
{
    std::thread([&options] {
        char line = 0;
        if (read(STDIN_FILENO, &line, 1) >= 0) {
            printResources(options.count, 1);
        }
        std::_Exit(0); // while the players play: no orderly teardown
    }).detach();
    playTogether(options);
}

static void playInLoop(const Options& options)
{
    const auto playback = contender::prepare(options.item, options.device, true, failUnless);
    playback->start();
    contender::runLoop();
}

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s MODE ITEM DEVICE COUNT\n", argv[0]);
        return 2;
    }
    const Options options = {argv[1], argv[2], argv[3], std::atoi(argv[4])};
    loadCard();
    contender::begin(argc, argv);
    if (options.mode == "sequence") {
        playInSequence(options);
    } else if (options.mode == "together") {
        playTogether(options);
    } else if (options.mode == "idle") {
        stayIdle(options);
    } else if (options.mode == "playing") {
        playUntilAsked(options);
    } else if (options.mode == "loop") {
        playInLoop(options);
    } else {
        std::fprintf(stderr, "unknown mode %s\n", argv[1]);
        return 2;
    }
    printPeakMemory();
    return 0;
}
