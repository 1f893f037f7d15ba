#include "KovaLog.h"

#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <cstdlib>

void setUpLog()
{
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    if (!std::getenv("KOVA_BENCH_TRACE")) {
        // log4cplus prints an error for a logger without any appender.
        root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        root.setLogLevel(log4cplus::OFF_LOG_LEVEL);
        return;
    }
    log4cplus::SharedAppenderPtr appender(new log4cplus::FileAppender("/dev/null"));
    appender->setLayout(
        std::make_unique<log4cplus::PatternLayout>("%D{%H:%M:%S.%q} %-5p %c: %m%n"));
    root.addAppender(appender);
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
}
