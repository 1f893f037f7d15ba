#ifndef KIT_PIPE_WRITER_H
#define KIT_PIPE_WRITER_H

#include <QtCore/QByteArray>
#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QTemporaryFile>

/// Another process that writes bytes into a FIFO. It is killed on destruction.
class PipeWriter
{
public:
    /// How the bytes are written.
    struct Manner
    {
        int chunk = 65536;     ///< bytes of one write
        int pauseMs = 0;       ///< pause after each write, in milliseconds
        bool keepOpen = false; ///< holds the FIFO open after the last byte, until close()
        int first = 0;         ///< bytes of the very first write; like all others when 0
        int times = 1;         ///< how often the bytes are written, one time after another
        int header = 0;        ///< how many of them, the first ones, are written only once
        int silence = 0;       ///< zero bytes after them
        int killedAfter = -1;  ///< kills itself when so many bytes are written; never when negative
    };

    /// A write of so many bytes at most goes into a FIFO as a whole or not at all.
    static constexpr int atomic = 4096;

    /// Starts the process, which waits until `fifo` has a reader.
    PipeWriter(const QString& fifo, const QByteArray& bytes, const Manner& manner);
    PipeWriter(const QString& fifo, const QByteArray& bytes);
    ~PipeWriter();

    /// Waits, without an event loop, until the process has opened the FIFO.
    bool waitForOpened();
    /// Waits, without an event loop, until every byte is in the FIFO.
    bool waitForWritten();
    /// Closes a FIFO that was kept open and waits for the end of the process.
    bool close();
    /// Ends the process with SIGKILL and waits for its end.
    bool kill();
    /// Whether the process has not ended.
    bool isRunning();
    /// Waits for the end of the process.
    /// @return whether it wrote everything; false also when the reader closed too early
    bool waitForFinished();

    /// The bytes of all writes that are done, once waitForOpened() has returned true.
    qint64 written() const;
    /// Whether the process waits for something, as it does while the FIFO is full.
    bool isAsleep() const;

private:
    bool waitForLine(const char* line);

    QTemporaryFile source;
    QProcess process;
    QByteArray output;
};

#endif
