#include "kit/LogCapture.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>

class LogCapture::Appender : public log4cplus::Appender
{
public:
    ~Appender() override { destructorImpl(); }
    void close() override {}

    QStringList lines() const
    {
        const std::lock_guard<std::mutex> lock(linesMutex);
        return captured;
    }

    void clear()
    {
        const std::lock_guard<std::mutex> lock(linesMutex);
        captured.clear();
    }

    std::function<void(const QString&)> callback;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const std::string& level = log4cplus::getLogLevelManager().toString(event.getLogLevel());
        const QString line = QString::fromStdString(level + ' ' + event.getMessage());
        {
            const std::lock_guard<std::mutex> lock(linesMutex);
            captured.append(line);
        }
        if (callback) {
            callback(line);
        }
    }

private:
    mutable std::mutex linesMutex;
    QStringList captured;
};

LogCapture::LogCapture(const char* loggerName)
    : logger(log4cplus::Logger::getInstance(loggerName)), previousLevel(logger.getLogLevel()),
      previousAdditivity(logger.getAdditivity()), appender(new Appender)
{
    logger.addAppender(log4cplus::SharedAppenderPtr(appender.get()));
    logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    logger.setAdditivity(false);
}

LogCapture::~LogCapture()
{
    logger.removeAppender(log4cplus::SharedAppenderPtr(appender.get()));
    logger.setLogLevel(previousLevel);
    logger.setAdditivity(previousAdditivity);
}

QStringList LogCapture::lines() const
{
    return appender->lines();
}

QStringList LogCapture::texts(const char* level) const
{
    const QString prefix = QLatin1String(level) + QLatin1Char(' ');
    QStringList result;
    for (const QString& line : appender->lines()) {
        if (line.startsWith(prefix)) {
            result.append(line.mid(prefix.size()));
        }
    }
    return result;
}

void LogCapture::clear()
{
    appender->clear();
}

void LogCapture::onLine(const std::function<void(const QString&)>& callback)
{
    appender->callback = callback;
}

void LogCapture::setThreshold(log4cplus::LogLevel level)
{
    logger.setLogLevel(level);
}
