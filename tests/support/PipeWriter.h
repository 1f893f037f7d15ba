#ifndef TEST_SUPPORT_PIPE_WRITER_H
#define TEST_SUPPORT_PIPE_WRITER_H

#include <QtCore/QByteArray>
#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QTemporaryFile>

/// Another process that writes bytes into a FIFO. It is killed when the object dies.
class PipeWriter
{
public:
    /// How the bytes are written.
    struct Manner
    {
        int chunk = 65536;     ///< bytes of one write
        int pauseMs = 0;       ///< pause after each chunk, in milliseconds
        bool keepOpen = false; ///< holds the FIFO open after the last byte, until close()
    };

    /// Starts the process, which waits until `fifo` has a reader.
    PipeWriter(const QString& fifo, const QByteArray& bytes, const Manner& manner);
    PipeWriter(const QString& fifo, const QByteArray& bytes);
    ~PipeWriter();

    /// Waits, without an event loop, until the process has opened the FIFO.
    bool waitForOpened();
    /// Waits, without an event loop, until the reader's side has taken in every byte.
    bool waitForWritten();
    /// Closes a FIFO that was kept open and waits for the end of the process.
    bool close();
    /// Ends the process with SIGKILL and waits until it is gone.
    bool kill();
    /// Whether the process has not ended.
    bool isRunning();
    /// Waits for the end of the process.
    /// @return whether it wrote everything; false also when the reader closed too early
    bool waitForFinished();

private:
    bool waitForLine(const char* line);

    QTemporaryFile source;
    QProcess process;
    QByteArray output;
};

#endif
