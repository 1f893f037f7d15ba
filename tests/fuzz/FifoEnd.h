#ifndef FUZZ_FIFO_END_H
#define FUZZ_FIFO_END_H

#include <QtCore/QByteArray>
#include <QtCore/QFile>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

/// The writing end of a FIFO, in the process of its reader. It never waits.
class FifoEnd
{
public:
    /// Opens a FIFO that has a reader; without one, nothing is ever written.
    explicit FifoEnd(const QString& fifo)
        : descriptor(open(QFile::encodeName(fifo).constData(), O_WRONLY | O_CLOEXEC | O_NONBLOCK))
    {
        std::signal(SIGPIPE, SIG_IGN);
    }
    ~FifoEnd() { close(); }
    FifoEnd(const FifoEnd&) = delete;
    FifoEnd& operator=(const FifoEnd&) = delete;

    /// @return how many bytes were taken: none when the FIFO is full, all of them when nobody reads
    ///         any more, because then they are of no use
    int write(const QByteArray& bytes) const
    {
        const ssize_t taken =
            ::write(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()));
        if (taken >= 0) {
            return static_cast<int>(taken);
        }
        return errno == EAGAIN ? 0 : bytes.size();
    }

    void close()
    {
        if (descriptor >= 0) {
            ::close(descriptor);
            descriptor = -1;
        }
    }

private:
    int descriptor;
};

#endif
