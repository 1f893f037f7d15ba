#include "LogOutput.h"

#include "Console.h"

#include <log4cplus/appender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <log4cplus/spi/loggingevent.h>

#include <sstream>

namespace {

/// Hands the lines to the console, which knows of the live line and the user's encoding.
class ConsoleAppender : public log4cplus::Appender
{
public:
    explicit ConsoleAppender(Console& receiver) : console(receiver)
    {
        setLayout(std::make_unique<log4cplus::PatternLayout>("%D{%H:%M:%S.%q} %-5p %c: %m"));
    }

    ~ConsoleAppender() override { destructorImpl(); }

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::ostringstream line;
        layout->formatAndAppend(line, event);
        console.printLogLine(QString::fromStdString(line.str()));
    }

private:
    Console& console;
};

/// Replaces all appenders. There must always be one: log4cplus complains on standard error about a
/// logger that has none.
void setOnlyAppender(log4cplus::Appender* appender)
{
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(appender));
}

void switchOff()
{
    setOnlyAppender(new log4cplus::NullAppender);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
}

} // namespace

LogOutput::LogOutput(int verbosity, Console& console)
{
    if (verbosity <= 0) {
        switchOff();
        return;
    }
    setOnlyAppender(new ConsoleAppender(console));
    log4cplus::Logger::getRoot().setLogLevel(verbosity == 1 ? log4cplus::DEBUG_LOG_LEVEL
                                                            : log4cplus::TRACE_LOG_LEVEL);
}

LogOutput::~LogOutput()
{
    switchOff();
}
