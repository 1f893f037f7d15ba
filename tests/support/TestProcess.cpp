#include "support/TestProcess.h"

#include <glib.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <cstdio>
#include <cstdlib>

static TestProcess* theProcess = nullptr;

bool isCriticalOfGStreamerItself(const gchar* domain, const gchar* message)
{
    return (g_strcmp0(domain, "GStreamer") == 0 &&
            g_strcmp0(message, "gst_event_set_seqnum: assertion 'seqnum != GST_SEQNUM_INVALID' "
                               "failed") == 0) ||
           (g_strcmp0(domain, "GStreamer-Base") == 0 &&
            g_strcmp0(message, "gst_base_src_set_format: assertion 'GST_STATE (src) <= "
                               "GST_STATE_READY' failed") == 0);
}

static void abortOnCritical(const gchar* domain, GLogLevelFlags level, const gchar* message,
                            gpointer /*data*/)
{
    if (isCriticalOfGStreamerItself(domain, message)) {
        return;
    }
    g_log_default_handler(domain, level, message, nullptr);
    if ((level & G_LOG_LEVEL_MASK) <= G_LOG_LEVEL_CRITICAL) {
        std::fprintf(stderr, "A GLib critical ends the test.\n");
        std::abort();
    }
}

TestProcess::TestProcess()
{
    theProcess = this;
    if (!folder.isValid()) {
        qFatal("no temporary folder: %s", qPrintable(folder.errorString()));
    }
    qputenv("LC_ALL", "C");
    qputenv("GST_REGISTRY", path(QStringLiteral("registry.bin")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", path(QStringLiteral("cache")).toLocal8Bit());
    for (const char* name : {"GST_DEBUG", "GST_DEBUG_DUMP_DOT_DIR", "http_proxy", "https_proxy"}) {
        qunsetenv(name);
    }
    g_log_set_default_handler(abortOnCritical, nullptr);
    log4cplus::Logger::getRoot().addAppender(
        log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
}

TestProcess::~TestProcess()
{
    theProcess = nullptr;
}

QString TestProcess::path(const QString& name)
{
    return theProcess->folder.filePath(name);
}
