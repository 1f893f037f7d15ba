#ifndef KIT_HOLDINGS_H
#define KIT_HOLDINGS_H

#include <QtCore/QDir>

#include <glib.h>

/// The resources of the system that this process holds.
struct Holdings
{
    /// GLib keeps the threads of destroyed pipelines for a while; they are released first.
    static Holdings now()
    {
        g_thread_pool_stop_unused_threads();
        return {countIn(QStringLiteral("/proc/self/fd")),
                countIn(QStringLiteral("/proc/self/task"))};
    }

    /// Whether no number is larger than in `others`.
    bool within(const Holdings& others) const
    {
        return descriptors <= others.descriptors && threads <= others.threads;
    }

    /// Returns the number of entries of a folder.
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
