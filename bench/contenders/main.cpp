// The program around each contender: plays, and tells what the runner cannot see from outside.
//
//     NAME MODE ITEM DEVICE COUNT
//
//     sequence   COUNT players, one after the other
//     together   COUNT players at once, on the devices DEVICE1, DEVICE2 …
//     idle       makes COUNT players and starts none of them
//     playing    like together, until a line can be read from standard input
//     loop       one player that plays the item again and again, until the process is killed

#include "Contender.h"
#include "PeakMemory.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fstream>
#include <malloc.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Order
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

/// What the process holds now. The thread and the descriptor that look are not counted.
static void printHeld(int players, int watchers)
{
    const long threads = entriesOf("/proc/self/task") - watchers;
    const long descriptors = entriesOf("/proc/self/fd") - 1;
    const struct mallinfo2 heap = mallinfo2();
    std::printf("held %d %zu %ld %ld %ld\n", players, heap.uordblks + heap.hblkhd, residentBytes(),
                threads, descriptors);
    std::fflush(stdout);
}

static void failUnless(bool ended)
{
    if (!ended) {
        std::fprintf(stderr, "the playback failed\n");
        std::exit(1);
    }
}

static void playInSequence(const Order& order)
{
    for (int i = 0; i < order.count; ++i) {
        Times times;
        const auto playback =
            contender::prepare(order.item, order.device, false, [&times](bool ended) {
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

static void playTogether(const Order& order)
{
    std::vector<Times> times(static_cast<std::size_t>(order.count));
    std::vector<std::unique_ptr<Playback>> playbacks;
    int left = order.count;
    for (Times& mine : times) {
        const std::string device = order.device + std::to_string(playbacks.size() + 1);
        playbacks.push_back(
            contender::prepare(order.item, device, false, [&mine, &left](bool ended) {
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

static void stayIdle(const Order& order)
{
    std::vector<std::unique_ptr<Playback>> playbacks;
    playbacks.reserve(static_cast<std::size_t>(order.count));
    while (static_cast<int>(playbacks.size()) < order.count) {
        playbacks.push_back(contender::prepare(order.item, order.device, false, failUnless));
        if (playbacks.size() == 1) {
            printHeld(1, 0);
        }
    }
    printHeld(order.count, 0);
}

static void playUntilAsked(const Order& order)
{
    std::thread([&order] {
        char line = 0;
        if (read(STDIN_FILENO, &line, 1) >= 0) {
            printHeld(order.count, 1);
        }
        std::_Exit(0); // in the middle of the sound, so nothing can be taken down in order
    }).detach();
    playTogether(order);
}

static void playInLoop(const Order& order)
{
    const auto playback = contender::prepare(order.item, order.device, true, failUnless);
    playback->start();
    contender::runLoop();
}

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s MODE ITEM DEVICE COUNT\n", argv[0]);
        return 2;
    }
    const Order order = {argv[1], argv[2], argv[3], std::atoi(argv[4])};
    contender::begin(argc, argv);
    if (order.mode == "sequence") {
        playInSequence(order);
    } else if (order.mode == "together") {
        playTogether(order);
    } else if (order.mode == "idle") {
        stayIdle(order);
    } else if (order.mode == "playing") {
        playUntilAsked(order);
    } else if (order.mode == "loop") {
        playInLoop(order);
    } else {
        std::fprintf(stderr, "there is no mode %s\n", argv[1]);
        return 2;
    }
    printPeakMemory();
    return 0;
}
