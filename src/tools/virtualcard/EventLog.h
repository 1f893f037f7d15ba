#ifndef VIRTUALCARD_EVENT_LOG_H
#define VIRTUALCARD_EVENT_LOG_H

#include "Descriptor.h"

#include <cstdint>
#include <string>

/// Nanoseconds of CLOCK_MONOTONIC.
using Nanoseconds = std::int64_t;

/// The present time.
Nanoseconds monotonicNow();

/// The events file of a card: one line for each event, "<nanoseconds> <event> [details]". Lines are
/// only ever added, each with one write, so that several processes may use one file in turn.
class EventLog
{
public:
    /// Opens the file for appending and makes it if need be. Without a path nothing is written.
    /// @return 0 or a negative errno
    int open(const std::string& path);

    /// Adds a line.
    /// @param when     the time of the event, which may have passed a little while ago
    /// @param event    one word
    /// @param details  words with one blank between them
    void add(Nanoseconds when, const char* event, const std::string& details = std::string());

    /// Whether an event of this name has been written, now or in an earlier opening.
    bool contains(const char* event) const;

private:
    std::string path;
    Descriptor file;
};

#endif
