#include "OtherThreads.h"

#include "Descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace {

std::mutex insideMutex;
std::vector<long> insideThreads; ///< guarded by insideMutex

struct CloseDirectory
{
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

} // namespace

static long threadId()
{
    return ::syscall(SYS_gettid);
}

InsideCard::InsideCard()
{
    const std::lock_guard<std::mutex> lock(insideMutex);
    insideThreads.push_back(threadId());
}

InsideCard::~InsideCard()
{
    const std::lock_guard<std::mutex> lock(insideMutex);
    insideThreads.erase(std::find(insideThreads.begin(), insideThreads.end(), threadId()));
}

static bool isInsideCard(long thread)
{
    const std::lock_guard<std::mutex> lock(insideMutex);
    return std::find(insideThreads.begin(), insideThreads.end(), thread) != insideThreads.end();
}

/// The beginning of a small file of /proc; empty when it cannot be read.
static std::string readStart(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 512> bytes{};
    const ssize_t size = file ? ::read(file.get(), bytes.data(), bytes.size()) : 0;
    return size > 0 ? std::string(bytes.data(), static_cast<std::size_t>(size)) : std::string();
}

/// Whether a thread sleeps until something wakes it. Waiting for a disk counts as work.
static bool isAsleep(const std::string& stat)
{
    // The state stands behind the name, which is in parentheses and may hold some itself.
    const std::size_t name = stat.rfind(')');
    return name != std::string::npos && name + 2 < stat.size() && stat[name + 2] == 'S';
}

/// How often a thread has been given a processor; 0 when the kernel does not count.
static unsigned long long turns(const std::string& schedstat)
{
    const std::size_t last = schedstat.rfind(' ');
    return last == std::string::npos ? 0 : std::strtoull(schedstat.c_str() + last, nullptr, 10);
}

/// The turns of all threads together, or nothing when one of them is awake.
static std::optional<unsigned long long> turnsOfSleepers()
{
    const std::string folder = "/proc/self/task/";
    const Directory threads(::opendir(folder.c_str()));
    if (!threads) {
        return std::nullopt;
    }
    unsigned long long sum = 0;
    // Only this function holds the directory stream.
    while (const dirent* entry = ::readdir(threads.get())) { // NOLINT(concurrency-mt-unsafe)
        const std::string thread = entry->d_name;
        if (thread.front() == '.' || isInsideCard(std::strtol(thread.c_str(), nullptr, 10))) {
            continue;
        }
        if (!isAsleep(readStart(folder + thread + "/stat"))) {
            return std::nullopt;
        }
        sum += turns(readStart(folder + thread + "/schedstat"));
    }
    return sum;
}

bool othersAreAsleep()
{
    // A thread that was looked at already may have been woken by one that slept when its own turn
    // to be looked at came. Twice asleep without a turn in between is asleep.
    const auto first = turnsOfSleepers();
    return first && first == turnsOfSleepers();
}
