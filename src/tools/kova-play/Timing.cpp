#include "Timing.h"

#include <ctime>

namespace {

using timing::Clock;

std::chrono::nanoseconds cpuTime() noexcept
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// What the process had used when the libraries were loaded and before main().
const std::chrono::nanoseconds loading = cpuTime();

QString line(std::chrono::nanoseconds duration, const QString& what)
{
    const double milliseconds = std::chrono::duration<double, std::milli>(duration).count();
    return QString("%1 ms  %2").arg(QString::number(milliseconds, 'f', 1), 9).arg(what);
}

/// A line for the time between two moments, if both have come.
void add(QStringList& lines, Clock::time_point begin, Clock::time_point end, const QString& what)
{
    if (begin != Clock::time_point() && end != Clock::time_point()) {
        lines << line(end - begin, what);
    }
}

QString loadingLine(const PipelineTrace::Moments& moments,
                    const std::vector<GstLog::PluginLoad>& loads)
{
    std::chrono::nanoseconds sum = {};
    QStringList names;
    for (const GstLog::PluginLoad& load : loads) {
        if (load.begin >= moments.startBegins && load.end <= moments.outcome) {
            sum += load.end - load.begin;
            names << load.name;
        }
    }
    return line(sum, QString("of it loading %1 plug-ins%2")
                         .arg(names.size())
                         .arg(names.isEmpty() ? QString() : ": " + names.join(' ')));
}

} // namespace

QStringList timing::ofProcess(Clock::time_point begin, Clock::time_point end,
                              const GstLog::Registry& registry)
{
    const std::chrono::nanoseconds registryTime = registry.end - registry.begin;
    return {"timing of the process:", line(loading, "loading the program and its libraries (CPU)"),
            line(end - begin - registryTime, "initialising GStreamer"),
            line(registryTime, registry.outdated ? "scanning the plug-ins for the registry"
                                                 : "reading the registry")};
}

QStringList timing::ofItem(const QString& token, const PipelineTrace::Moments& moments,
                           const std::vector<GstLog::PluginLoad>& loads)
{
    QStringList lines = {QString("timing of %1:").arg(token)};
    add(lines, moments.makingBegins, moments.made, "making the player");
    add(lines, moments.startBegins, moments.startEnds, "the start call");
    add(lines, moments.deviceBegins, moments.deviceOpen, "of it opening the device");
    add(lines, moments.startBegins, moments.firstSound, "from the start call to the first frame");
    if (moments.startBegins != Clock::time_point()) {
        lines << loadingLine(moments, loads);
    }
    add(lines, moments.startBegins, moments.outcome, "from the start call to the outcome");
    return lines;
}
