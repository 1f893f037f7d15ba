#ifndef VIRTUALCARD_EVENT_LOG_H
#define VIRTUALCARD_EVENT_LOG_H

#include "Descriptor.h"

#include <cstdint>
#include <string>

/// Nanoseconds of CLOCK_MONOTONIC.
using Nanoseconds = std::int64_t;

/// Returns the current time.
Nanoseconds monotonicNow();

/// The event file of a card: one line for each event, "<nanoseconds> <event> [details]". Each line
/// is appended with one write, so that several processes can use one file in turn.
class EventLog
{
public:
    /// Opens the file for appending and creates it if needed. Without a path nothing is written.
    /// @return 0 or a negative errno
    int open(const std::string& path);

    /// Adds a line.
    /// @param when     the time of the event, which may be in the past
    /// @param event    one word
    /// @param details  words with one blank between them
    void add(Nanoseconds when, const char* event, const std::string& details = std::string());

    /// Whether the file contains an event of this name, also from an earlier opening.
    bool contains(const char* event) const;

private:
    std::string path;
    Descriptor file;
};

#endif
