#ifndef SIMPLE_PLAYER_LOGGING_P_H
#define SIMPLE_PLAYER_LOGGING_P_H

#include "core/dbglog.h"

#include <QtCore/QString>

#include <log4cplus/logger.h>

#include <string>
#include <type_traits>

/// Composing log lines. Every source file that logs has one static `logger`.
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

/// Numbers are never grouped into thousands, whatever the locale is. A bool becomes 0 or 1.
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

/// Logs the given texts and values, joined without separators, at `level`. Nothing is evaluated or
/// composed unless the level is enabled. The line is complete before it is passed to log4cplus,
/// whose own macros share one stream per thread: a value that logs itself would corrupt the line.
#define LOG_LINE(level, ...)                                                                       \
    do {                                                                                           \
        if (logger.isEnabledFor(log4cplus::level##_LOG_LEVEL)) {                                   \
            logger.forcedLog(log4cplus::level##_LOG_LEVEL, logging::compose(__VA_ARGS__),          \
                             __FILE__, __LINE__, __func__);                                        \
        }                                                                                          \
    } while (false)

/// Logs the entry line of an operation.
#define LOG_ENTER(level, ...)                                                                      \
    LOG_LINE(level, "Enter ", dbglog_scopedFunction(__PRETTY_FUNCTION__, "SimplePlayer"), ": ",    \
             __VA_ARGS__)

/// Logs the leave line of an operation on its normal way out. An operation that returns early after
/// a failure logs none. An operation that handles a failure and continues to its end does:
/// setupGstPipeline() with the result of a failed build, and the stop and the reader of the stream
/// engine. Therefore a scoped object cannot log this line.
#define LOG_LEAVE(level, ...)                                                                      \
    LOG_LINE(level, "Leave ", dbglog_scopedFunction(__PRETTY_FUNCTION__, "SimplePlayer"), ": ",    \
             __VA_ARGS__)

#endif
