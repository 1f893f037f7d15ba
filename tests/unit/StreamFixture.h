#ifndef UNIT_STREAM_FIXTURE_H
#define UNIT_STREAM_FIXTURE_H

#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/FifoWriter.h"
#include "kit/LogCapture.h"

#include <core/KovaNamedPipe.h>
#include <simplePlayer/StreamSimplePlayer.h>

#include <QtCore/QSocketNotifier>

#include <memory>
#include <optional>

/// The stream engine, whose slots a test may call.
class OpenEngine : public OpenStreamEngine
{
public:
    using OpenStreamEngine::OpenStreamEngine;

    void activate(int sock = 7)
    {
        QMetaObject::invokeMethod(this, "on_readPipeNotifier_activated", Qt::DirectConnection,
                                  Q_ARG(int, sock));
    }

    void receive(bool enable)
    {
        QMetaObject::invokeMethod(this, "on_receiveNewData", Qt::DirectConnection,
                                  Q_ARG(bool, enable));
    }

    /// What the reader is doing: "blocked", "reading", or "ended" without a pipe.
    QString reader() const
    {
        return !pipe                               ? QStringLiteral("ended")
               : pipe->readNotifier()->isEnabled() ? QStringLiteral("reading")
                                                   : QStringLiteral("blocked");
    }
};

/// A front object and an open engine for it. The front object's own engine has no pipe.
struct StreamFixture
{
    explicit StreamFixture(const QString& caps = QString(), const QString& fifo = newFifoPath())
        : path(fifo), front(QString(), QString(), QStringLiteral("front"), QString()),
          engine(new OpenEngine(path, caps, QStringLiteral("T"), QStringLiteral("null"), &front))
    {
        log.clear();
    }

    /// Opens a writing end in this process, whose bytes are there at once.
    void write(const QByteArray& bytes)
    {
        if (!writer) {
            writer.emplace(path);
        }
        writer->write(bytes);
    }

    /// What the engine's reader is doing; an engine that is destroyed has ended.
    QString reader() const { return engine ? engine->reader() : QStringLiteral("ended"); }

    /// The log without the lines of pipelineInitialized().
    QStringList lines() const
    {
        QStringList all = log.lines();
        all.removeAll(enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"));
        all.removeAll(enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"));
        return all;
    }

    LogCapture log;
    const QString path;
    StreamSimplePlayer front;
    std::optional<FifoWriter> writer;
    std::unique_ptr<OpenEngine> engine;
};

inline QString enterTrace(const char* function, const QString& details = QStringLiteral("token: T"))
{
    return enterLine("TRACE", qPrintable(QStringLiteral("StreamSimplePlayerImpl::") + function),
                     qPrintable(details));
}

inline QString leaveTrace(const char* function, const QString& details = QStringLiteral("token: T"))
{
    return leaveLine("TRACE", qPrintable(QStringLiteral("StreamSimplePlayerImpl::") + function),
                     qPrintable(details));
}

inline QStringList closing()
{
    return {enterTrace("closeReadPipe"), leaveTrace("closeReadPipe")};
}

#endif
