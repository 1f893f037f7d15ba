#include "kit/PipeWriter.h"

#include "kit/TestProcess.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

/// Long enough for a loaded machine, shorter than the time limit of a test program.
static constexpr int timeoutMs = 120000;

/// The line that the process prints when it has opened the FIFO.
static constexpr const char* openedLine = "opened\n";

PipeWriter::PipeWriter(const QString& fifo, const QByteArray& bytes, const Manner& manner)
    : source(TestProcess::path(QStringLiteral("written-XXXXXX")))
{
    if (!source.open() || source.write(bytes) != bytes.size() || !source.flush()) {
        qFatal("PipeWriter: %s", qPrintable(source.errorString()));
    }
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(TestProcess::startable(QCoreApplication::applicationDirPath() +
                                         QStringLiteral("/pipewriter")),
                  {fifo, source.fileName(),
                   QString::number(manner.first > 0 ? manner.first : manner.chunk),
                   QString::number(manner.chunk), QString::number(manner.pauseMs),
                   QString::number(manner.times), QString::number(manner.header),
                   QString::number(manner.silence), QString::number(manner.killedAfter)});
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
    return waitForLine(openedLine);
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

/// Reads a file that the kernel generates, whose size is not known in advance.
static QByteArray readProcFile(qint64 process, const char* name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(process).arg(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

qint64 PipeWriter::written() const
{
    static constexpr const char* field = "wchar: ";
    for (const QByteArray& line : readProcFile(process.processId(), "io").split('\n')) {
        if (line.startsWith(field)) {
            return line.mid(int(qstrlen(field))).toLongLong() - qint64(qstrlen(openedLine));
        }
    }
    return -1;
}

bool PipeWriter::isAsleep() const
{
    const QByteArray stat = readProcFile(process.processId(), "stat");
    // The state follows the name, which is in parentheses.
    return stat.mid(stat.lastIndexOf(')') + 2, 1) == "S";
}

bool PipeWriter::waitForLine(const char* line)
{
    QElapsedTimer elapsed;
    elapsed.start();
    do {
        output += process.readAllStandardOutput();
    } while (!output.contains(line) && elapsed.elapsed() < timeoutMs &&
             process.waitForReadyRead(timeoutMs));
    output += process.readAllStandardOutput(); // the rest of a process that has ended meanwhile
    return output.contains(line);
}
