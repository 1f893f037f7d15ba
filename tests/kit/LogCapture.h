#ifndef KIT_LOG_CAPTURE_H
#define KIT_LOG_CAPTURE_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <functional>

/// Captures all lines of one logger during its lifetime, from any thread and at every level.
class LogCapture
{
public:
    explicit LogCapture(const char* loggerName = "SimplePlayer");
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The lines so far as "LEVEL text", in their order.
    QStringList lines() const;
    /// Those of one level ("ERROR") without the level.
    QStringList texts(const char* level) const;
    /// Discards the lines so far.
    void clear();
    /// Calls a function with each line from now on, inside the call that logs it.
    void onLine(const std::function<void(const QString& line)>& callback);
    /// Which levels reach the logger from now on: `level` and higher.
    void setThreshold(log4cplus::LogLevel level);

private:
    class Appender;

    log4cplus::Logger logger;
    log4cplus::LogLevel previousLevel;
    bool previousAdditivity;
    log4cplus::helpers::SharedObjectPtr<Appender> appender;
};

#endif
