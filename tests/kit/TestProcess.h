#ifndef KIT_TEST_PROCESS_H
#define KIT_TEST_PROCESS_H

#include "kit/GstLeaks.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// Makes a test process independent of its machine: a temporary folder (removed at the end) with a
/// GStreamer registry, the C locale, silent loggers, and GLib criticals that abort. Create it first
/// in main().
class TestProcess
{
public:
    TestProcess();
    ~TestProcess();
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;

    /// The path of `name` in the temporary folder of this process; the folder itself without one.
    static QString path(const QString& name = QString());

    /// What starts a program of this build: its own path or, in an emulator, that of a script which
    /// starts it there too. Programs of the machine are started by themselves.
    static QString startable(const QString& program);

    /// Runs functions of this test program again, in a process that has no /proc file system.
    /// @param functions  names of test functions, "function" or "function:row"
    /// @return the output when a function failed; empty when all passed, or when this cannot be
    ///         tried: a sanitizer or an emulator needs /proc, or mount namespaces are forbidden
    static QString runWithoutProc(const QStringList& functions);

private:
    QTemporaryDir folder;
};

/// Whether the text of a GLib critical is one that GStreamer 1.22 itself causes, without effect on
/// playback.
bool isComplaintOfGStreamerItself(const char* critical);

#endif
