#ifndef BENCH_PEAK_MEMORY_H
#define BENCH_PEAK_MEMORY_H

#include <cstdio>
#include <fstream>
#include <string>

/// Prints the peak memory of this process in bytes. ru_maxrss, which the parent gets from wait4(),
/// can include the memory of the parent itself at the fork.
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
