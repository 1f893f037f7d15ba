#ifndef SOAK_USAGE_H
#define SOAK_USAGE_H

#include <QtCore/QtGlobal>

#include <array>
#include <vector>

/// What this process holds at one moment.
struct Usage
{
    qint64 plays = 0;       ///< how many players have lived and died so far
    qint64 descriptors = 0; ///< open files
    qint64 threads = 0;
    qint64 objects = 0;  ///< live GStreamer objects
    qint64 heap = 0;     ///< bytes in use on the heap of malloc
    qint64 resident = 0; ///< bytes of memory that are in RAM
};

/// Lets everything settle that dead players leave to other threads, then looks.
Usage measureUsage(qint64 plays);

/// A quantity that must not grow while players come and go.
struct Quantity
{
    const char* name;
    qint64 Usage::*value;
    double perPlay; ///< by how much each play may let it grow
    qint64 noise;   ///< what the other threads of a process hold more or less at any one moment
};

/// All quantities that are judged. The resident memory is only shown: the kernel and malloc decide
/// when memory goes back. The heap has some play: a bare GStreamer pipeline that is made, started
/// and dropped lets it grow by 400 bytes each time at first and by 50 after some thousands. What
/// players without a pipeline lose would show within it, and memcheck sees single bytes.
extern const std::array<Quantity, 4> judgedQuantities;

/// How much a quantity grew: the median of the last quarter of the run less that of its second one.
/// The first quarter is warm-up.
qint64 growth(const std::vector<Usage>& run, const Quantity& quantity);

#endif
