#include "EventLog.h"

#include <fcntl.h>

#include <cerrno>
#include <ctime>
#include <fstream>
#include <sstream>

Nanoseconds monotonicNow()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Nanoseconds{now.tv_sec} * 1000000000 + now.tv_nsec;
}

int EventLog::open(const std::string& eventsPath)
{
    if (eventsPath.empty()) {
        return 0;
    }
    path = eventsPath;
    file = Descriptor(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    return file ? 0 : -errno;
}

void EventLog::add(Nanoseconds when, const char* event, const std::string& details)
{
    if (!file) {
        return;
    }
    std::string line = std::to_string(when) + ' ' + event;
    if (!details.empty()) {
        line += ' ' + details;
    }
    line += '\n';
    // A card continues to play if the disk is full.
    [[maybe_unused]] const ssize_t written = ::write(file.get(), line.data(), line.size());
}

bool EventLog::contains(const char* event) const
{
    std::ifstream lines(path);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string word;
        words >> word >> word;
        if (word == event) {
            return true;
        }
    }
    return false;
}
