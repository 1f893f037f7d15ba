#ifndef UNIT_PIPE_TEST_H
#define UNIT_PIPE_TEST_H

#include "kit/FifoWriter.h"
#include "kit/LogCapture.h"

#include <core/KovaNamedPipe.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QObject>

#include <memory>
#include <utility>

inline QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

/// A named pipe that is created and opened without waiting for a writer. Its reads block.
class OpenPipe : public KovaNamedPipe
{
public:
    explicit OpenPipe(const QString& fifoPath, bool removeOnClose = false)
        : KovaNamedPipe(fifoPath, 1, nullptr, removeOnClose)
    {
        if (!create() || !open(false)) {
            qFatal("%s cannot be opened", qPrintable(fifoPath));
        }
    }
};

/// The base of the tests of the named pipe.
class PipeTest : public QObject
{
protected:
    /// Called before each test function.
    void prepare()
    {
        fifo = newFifoPath();
        log = std::make_unique<LogCapture>("KovaNamedPipe");
        warnings.clear();
        qInstallMessageHandler(recordWarning);
    }

    /// Called after each test function.
    /// @return Qt's warnings, about a notifier that outlives its descriptor for instance
    QStringList finish()
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        qInstallMessageHandler(nullptr);
        log.reset();
        return std::exchange(warnings, QStringList());
    }

    QString fifo;
    std::unique_ptr<LogCapture> log;

private:
    static void recordWarning(QtMsgType type, const QMessageLogContext& /*context*/,
                              const QString& text)
    {
        if (type != QtDebugMsg && type != QtInfoMsg) {
            warnings.append(text);
        }
    }

    static inline QStringList warnings;
};

#endif
