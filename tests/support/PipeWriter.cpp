#include "support/PipeWriter.h"

#include "support/TestProcess.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>

/// Long enough for a loaded machine, shorter than the time limit of a test program.
static constexpr int timeoutMs = 120000;

PipeWriter::PipeWriter(const QString& fifo, const QByteArray& bytes, const Manner& manner)
    : source(TestProcess::path(QStringLiteral("written-XXXXXX")))
{
    if (!source.open() || source.write(bytes) != bytes.size() || !source.flush()) {
        qFatal("PipeWriter: %s", qPrintable(source.errorString()));
    }
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(
        QCoreApplication::applicationDirPath() + QStringLiteral("/pipewriter"),
        {fifo, source.fileName(), QString::number(manner.chunk), QString::number(manner.pauseMs)});
    if (!process.waitForStarted(timeoutMs)) {
        qFatal("PipeWriter: %s", qPrintable(process.errorString()));
    }
    if (!manner.keepOpen) {
        process.closeWriteChannel();
    }
}

PipeWriter::PipeWriter(const QString& fifo, const QByteArray& bytes)
    : PipeWriter(fifo, bytes, Manner())
{
}

PipeWriter::~PipeWriter()
{
    kill();
}

bool PipeWriter::waitForOpened()
{
    return waitForLine("opened\n");
}

bool PipeWriter::waitForWritten()
{
    return waitForLine("written\n");
}

bool PipeWriter::close()
{
    process.closeWriteChannel();
    return waitForFinished();
}

bool PipeWriter::kill()
{
    process.kill();
    return process.state() == QProcess::NotRunning || process.waitForFinished(timeoutMs);
}

bool PipeWriter::isRunning()
{
    return !process.waitForFinished(0) && process.state() != QProcess::NotRunning;
}

bool PipeWriter::waitForFinished()
{
    if (process.state() != QProcess::NotRunning && !process.waitForFinished(timeoutMs)) {
        return false;
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool PipeWriter::waitForLine(const char* line)
{
    QElapsedTimer elapsed;
    elapsed.start();
    do {
        output += process.readAllStandardOutput();
    } while (!output.contains(line) && elapsed.elapsed() < timeoutMs &&
             process.waitForReadyRead(timeoutMs));
    output += process.readAllStandardOutput(); // what a process left that has ended meanwhile
    return output.contains(line);
}
