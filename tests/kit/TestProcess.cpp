#include "kit/TestProcess.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>

#include <dlfcn.h>
#include <glib.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

static TestProcess* theProcess = nullptr;

bool isComplaintOfGStreamerItself(const gchar* message)
{
    static const gchar* const complaints[] = {
        // Ogg or Opus comes from a source that cannot seek: an event gets no valid sequence number.
        "gst_event_set_seqnum: assertion 'seqnum != GST_SEQNUM_INVALID' failed",
        // A pipeline is shut down while its decoder is built, which starts the source once more.
        "gst_base_src_set_format: assertion 'GST_STATE (src) <= GST_STATE_READY' failed",
        // The HTTP source is given a URL without a host, on a machine that has libsoup 3.
        "soup_message_new_from_uri: assertion 'SOUP_URI_IS_VALID (uri)' failed",
    };
    return std::any_of(std::begin(complaints), std::end(complaints),
                       [message](const gchar* text) { return g_strcmp0(message, text) == 0; });
}

static void abortOnCritical(const gchar* domain, GLogLevelFlags level, const gchar* message,
                            gpointer /*data*/)
{
    if (isComplaintOfGStreamerItself(message)) {
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
    qputenv("LC_ALL", qEnvironmentVariable("KOVA_TEST_LOCALE", "C").toLatin1());
    qputenv("GST_REGISTRY", path(QStringLiteral("registry.bin")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", path(QStringLiteral("cache")).toLocal8Bit());
    for (const char* name : {"GST_DEBUG", "GST_DEBUG_DUMP_DOT_DIR", "http_proxy", "https_proxy"}) {
        qunsetenv(name);
    }
    // GStreamer takes the libsoup that is loaded already, else version 3. With 3.2 a player that is
    // stopped while its server is silent sometimes ends the process.
    dlopen("libsoup-2.4.so.1", RTLD_LAZY);
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

QString TestProcess::startable(const QString& program)
{
    const QByteArray emulator = qgetenv("KOVA_EMULATOR");
    if (emulator.isEmpty()) {
        return program;
    }
    QFile script(path("start-" + QFileInfo(program).fileName()));
    if (!script.exists()) {
        if (!script.open(QIODevice::WriteOnly) ||
            script.write("#!/bin/sh\nexec " + emulator + " '" + program.toLocal8Bit() +
                         "' \"$@\"\n") < 0 ||
            !script.setPermissions(QFile::ReadOwner | QFile::ExeOwner)) {
            qFatal("%s: %s", qPrintable(script.fileName()), qPrintable(script.errorString()));
        }
    }
    return script.fileName();
}

/// Runs a program that hides /proc from the command that follows it. @return its exit status
static int runInNamespace(const QStringList& command, QByteArray* output = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("unshare"),
                  QStringList{"--map-root-user", "--mount", "sh", "-c",
                              "mount -t tmpfs none /proc && exec \"$@\"", "sh"} +
                      command);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit) {
        return -1;
    }
    if (output) {
        *output = process.readAll();
    }
    return process.exitCode();
}

QString TestProcess::runWithoutProc(const QStringList& functions)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const bool needsProc = true;
#else
    const bool needsProc = qEnvironmentVariableIsSet("KOVA_EMULATOR");
#endif
    if (needsProc || runInNamespace({"true"}) != 0) {
        qInfo("left out: /proc cannot be hidden here");
        return QString();
    }
    QByteArray output;
    const int status = runInNamespace(
        QStringList{QCoreApplication::applicationFilePath(), QCoreApplication::applicationName()} +
            functions,
        &output);
    return status == 0 ? QString()
                       : QStringLiteral("exit status %1: %2").arg(status).arg(QString(output));
}
