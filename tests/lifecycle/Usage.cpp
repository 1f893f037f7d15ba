#include "Usage.h"

#include "kit/GstLeaks.h"
#include "kit/Holdings.h"
#include "kit/Waiting.h"

#include <QtCore/QFile>

#include <algorithm>
#include <malloc.h>
#include <unistd.h>

const std::array<Quantity, 4> judgedQuantities = {{
    {"descriptors", &Usage::descriptors, 0, 0},
    {"threads", &Usage::threads, 0, 2}, // GLib keeps idle threads of its pools for a while
    {"objects", &Usage::objects, 0, 4}, // GStreamer itself loses a pair of pads now and then
    {"heap", &Usage::heap, 400, 32768},
}};

static qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    file.open(QIODevice::ReadOnly);
    return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

Usage measureUsage(qint64 plays)
{
    deliverQueuedEvents();
    const QString left = leakedGstObjects(); // waits for the threads of released pipelines
    if (!left.isEmpty()) {
        qWarning("left behind: %s", qPrintable(left));
    }
    Usage usage;
    usage.plays = plays;
    const Holdings held = Holdings::now();
    usage.descriptors = held.descriptors;
    usage.threads = held.threads;
    usage.objects = liveGstObjects().size();
    malloc_trim(0);
    usage.heap = static_cast<qint64>(mallinfo2().uordblks);
    usage.resident = residentBytes();
    return usage;
}

static qint64 medianOf(const std::vector<Usage>& run, std::size_t begin, std::size_t end,
                       const Quantity& quantity)
{
    std::vector<qint64> values;
    for (std::size_t i = begin; i < end; ++i) {
        values.push_back(run[i].*quantity.value);
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

qint64 growth(const std::vector<Usage>& run, const Quantity& quantity)
{
    const std::size_t quarter = run.size() / 4;
    return medianOf(run, 3 * quarter, run.size(), quantity) -
           medianOf(run, quarter, 2 * quarter, quantity);
}
