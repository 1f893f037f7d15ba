#ifndef KIT_HOLDINGS_H
#define KIT_HOLDINGS_H

#include <QtCore/QDir>

#include <glib.h>

/// What this process holds of the system.
struct Holdings
{
    /// GLib keeps the threads of dead pipelines for a while: they are let go first.
    static Holdings now()
    {
        g_thread_pool_stop_unused_threads();
        return {countIn(QStringLiteral("/proc/self/fd")),
                countIn(QStringLiteral("/proc/self/task"))};
    }

    /// Whether nothing is more than in `others`.
    bool within(const Holdings& others) const
    {
        return descriptors <= others.descriptors && threads <= others.threads;
    }

    /// How many entries a folder has.
    static int countIn(const QString& folder)
    {
        return QDir(folder)
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
            .size();
    }

    int descriptors;
    int threads;
};

#endif
