#ifndef SOAK_USAGE_H
#define SOAK_USAGE_H

#include <QtCore/QtGlobal>

#include <array>
#include <vector>

/// What this process holds at one moment.
struct Usage
{
    qint64 plays = 0;       ///< how many players were made and deleted so far
    qint64 descriptors = 0; ///< open files
    qint64 threads = 0;
    qint64 objects = 0;  ///< live GStreamer objects
    qint64 heap = 0;     ///< bytes in use on the heap of malloc
    qint64 resident = 0; ///< bytes of memory that are in RAM
};

/// Waits until GStreamer's threads have released what deleted players used, then measures.
Usage measureUsage(qint64 plays);

/// A quantity that must not grow while players are made and deleted.
struct Quantity
{
    const char* name;
    qint64 Usage::*value;
    double perPlay; ///< by how much it may grow with each play
    qint64 noise;   ///< by how much it varies with what other threads are doing
};

/// All quantities that are judged. The resident memory is only shown: the kernel and malloc decide
/// when memory is returned. The heap may grow a little: a bare GStreamer pipeline that is made,
/// started and released lets it grow by 400 bytes each time at first and by 50 after some
/// thousands. memcheck finds smaller leaks.
extern const std::array<Quantity, 4> judgedQuantities;

/// How much a quantity grew: the median of the last quarter of the run less that of its second one.
/// The first quarter is warm-up.
qint64 growth(const std::vector<Usage>& run, const Quantity& quantity);

#endif
