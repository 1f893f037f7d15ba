#ifndef KOVA_PLAY_TIMING_H
#define KOVA_PLAY_TIMING_H

#include "GstLog.h"
#include "Tracing.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

/// Where the milliseconds of a start go: lines for the user.
namespace timing {

using Clock = std::chrono::steady_clock;

/// Lines on the process.
/// @param begin     when the initialisation of GStreamer began
/// @param end       when it ended
/// @param registry  what was observed meanwhile
QStringList ofProcess(Clock::time_point begin, Clock::time_point end,
                      const GstLog::Registry& registry);

/// Lines on one item.
/// @param token    what it is called
/// @param moments  what was observed of it
/// @param loads    the plug-ins that the process has loaded
QStringList ofItem(const QString& token, const PipelineTrace::Moments& moments,
                   const std::vector<GstLog::PluginLoad>& loads);

} // namespace timing

#endif
