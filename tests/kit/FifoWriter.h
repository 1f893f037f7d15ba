#ifndef KIT_FIFO_WRITER_H
#define KIT_FIFO_WRITER_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// The writing end of a FIFO in the test process itself. It never blocks: what is written must fit
/// into the FIFO, and a FIFO without a reader is not opened. PipeWriter is another process instead.
class FifoWriter
{
public:
    /// Opens the FIFO if it has a reader.
    explicit FifoWriter(const QString& fifo);
    ~FifoWriter();
    FifoWriter(FifoWriter&& other) noexcept;
    FifoWriter(const FifoWriter&) = delete;
    FifoWriter& operator=(const FifoWriter&) = delete;
    FifoWriter& operator=(FifoWriter&&) = delete;

    /// Whether the FIFO had a reader.
    bool isOpen() const { return descriptor >= 0; }

    /// Writes all bytes. The test process ends when the FIFO does not take them.
    void write(const QByteArray& bytes) const;
    /// Writes as many of the bytes as the FIFO takes. @return how many, 0 when it is full; -1
    /// without a reader
    int writeSome(const QByteArray& bytes) const;

    /// How many bytes the reader has not taken yet.
    int unread() const;

    /// Closes this end, which ends the stream when no other writer has the FIFO open.
    void close();

private:
    int descriptor;
};

/// Whether a process has the FIFO open for reading.
bool hasReader(const QString& fifo);

/// The path of a FIFO that no test has used yet. A writer that outlives its reader writes on into
/// the next reader of the same path, so that each player needs a path of its own.
QString newFifoPath();

#endif
