#ifndef SIMPLE_PLAYER_LOGGING_P_H
#define SIMPLE_PLAYER_LOGGING_P_H

#include "core/dbglog.h"

#include <QtCore/QString>

#include <log4cplus/logger.h>

#include <string>
#include <type_traits>

/// Composing and writing of log lines. Every source file that logs holds one static `logger`.
namespace logging {

inline void append(std::string& line, const char* text)
{
    line += text;
}

inline void append(std::string& line, const std::string& text)
{
    line += text;
}

inline void append(std::string& line, const QString& text)
{
    line += text.toStdString();
}

/// Numbers are never grouped into thousands, whatever the process's locale; flags give 0 or 1.
template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
void append(std::string& line, Number number)
{
    line += std::to_string(number);
}

template <typename... Parts>
std::string compose(const Parts&... parts)
{
    std::string line;
    (append(line, parts), ...);
    return line;
}

} // namespace logging

/// Logs the given texts and values, put together without separators, at `level`. Nothing is
/// evaluated or composed unless the level is enabled. The line is complete before log4cplus sees
/// it: its own macros share one stream per thread, which a value that logs itself would destroy.
#define LOG_LINE(level, ...)                                                                       \
    do {                                                                                           \
        if (logger.isEnabledFor(log4cplus::level##_LOG_LEVEL)) {                                   \
            logger.forcedLog(log4cplus::level##_LOG_LEVEL, logging::compose(__VA_ARGS__),          \
                             __FILE__, __LINE__, __func__);                                        \
        }                                                                                          \
    } while (false)

/// The line that begins an operation.
#define LOG_ENTER(level, ...)                                                                      \
    LOG_LINE(level, "Enter ", dbglog_scopedFunction(__PRETTY_FUNCTION__, "SimplePlayer"), ": ",    \
             __VA_ARGS__)

/// The line that ends an operation on its normal way out. An operation that gives up half-way logs
/// no such line; one that carries a failure on to its end does (setupGstPipeline() with the result
/// of a failed build, the stop and the reader of the stream engine). That is why each operation
/// says itself where it leaves, and no scoped object does.
#define LOG_LEAVE(level, ...)                                                                      \
    LOG_LINE(level, "Leave ", dbglog_scopedFunction(__PRETTY_FUNCTION__, "SimplePlayer"), ": ",    \
             __VA_ARGS__)

#endif
