#include "OtherThreads.h"

#include "Descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::mutex waitingMutex;
std::set<long> waitingThreads; ///< guarded by waitingMutex

/// When all others were blocked for the last time. All cards share one check.
std::atomic<Nanoseconds> lastAsleep{0};

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

void setWaitingForCard(bool isWaiting)
{
    const std::lock_guard<std::mutex> lock(waitingMutex);
    if (isWaiting) {
        waitingThreads.insert(threadId());
    } else {
        waitingThreads.erase(threadId());
    }
}

static bool isWaitingForCard(long thread)
{
    const std::lock_guard<std::mutex> lock(waitingMutex);
    return waitingThreads.count(thread) > 0;
}

/// Returns the beginning of a small file of /proc; empty if it cannot be read.
static std::string readStart(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 512> bytes{};
    const ssize_t size = file ? ::read(file.get(), bytes.data(), bytes.size()) : 0;
    return size > 0 ? std::string(bytes.data(), static_cast<std::size_t>(size)) : std::string();
}

/// Whether a thread is not blocked: it runs, is runnable, or waits for a disk.
static bool isAwake(const std::string& stat)
{
    // The state follows the name, which is in parentheses and may contain parentheses itself.
    const std::size_t name = stat.rfind(')');
    if (name == std::string::npos || name + 2 >= stat.size()) {
        return true;
    }
    const char state = stat[name + 2];
    return state == 'R' || state == 'D';
}

/// Returns how often a thread was scheduled; 0 if the kernel does not count.
static unsigned long long turns(const std::string& schedstat)
{
    const std::size_t last = schedstat.rfind(' ');
    return last == std::string::npos ? 0 : std::strtoull(schedstat.c_str() + last, nullptr, 10);
}

static bool allAsleep(const std::string& process, unsigned long long& sumOfTurns);

/// Whether a thread and the processes that it started are blocked. Adds the number of times they
/// were scheduled to the sum.
static bool isAsleep(const std::string& folder, unsigned long long& sumOfTurns)
{
    if (isAwake(readStart(folder + "/stat"))) {
        return false;
    }
    sumOfTurns += turns(readStart(folder + "/schedstat"));
    std::istringstream children(readStart(folder + "/children"));
    std::string child;
    while (children >> child) {
        if (!allAsleep(child, sumOfTurns)) {
            return false;
        }
    }
    return true;
}

static bool allAsleep(const std::string& process, unsigned long long& sumOfTurns)
{
    const std::string folder = "/proc/" + process + "/task/";
    const Directory threads(::opendir(folder.c_str()));
    if (!threads) {
        return errno == ENOENT;
    }
    // Only this function uses the directory stream.
    while (const dirent* entry = ::readdir(threads.get())) { // NOLINT(concurrency-mt-unsafe)
        const std::string thread = entry->d_name;
        if (thread.front() != '.' && !isWaitingForCard(std::strtol(thread.c_str(), nullptr, 10)) &&
            !isAsleep(folder + thread, sumOfTurns)) {
            return false;
        }
    }
    return true;
}

static bool othersAreAsleep()
{
    // A thread may have been woken after its check, by one that was blocked only at its own, later
    // check. Two checks with the same result and no scheduling in between are conclusive.
    unsigned long long first = 0;
    unsigned long long second = 0;
    return allAsleep("self", first) && allAsleep("self", second) && first == second;
}

bool othersWereAsleep(Nanoseconds since)
{
    if (lastAsleep >= since) {
        return true;
    }
    const Nanoseconds start = monotonicNow();
    if (!othersAreAsleep()) {
        return false;
    }
    lastAsleep = start;
    return true;
}
