#ifndef BENCH_PEAK_MEMORY_H
#define BENCH_PEAK_MEMORY_H

#include <cstdio>
#include <fstream>
#include <string>

/// Prints how many bytes this process has held at most. What the kernel tells the parent when the
/// process has ended counts the parent's own memory at the start, too.
inline void printPeakMemory()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != "VmHWM:") {
    }
    long kibibytes = 0;
    status >> kibibytes;
    std::printf("peak %ld\n", kibibytes * 1024);
}

#endif
