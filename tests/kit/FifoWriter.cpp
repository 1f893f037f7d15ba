#include "kit/FifoWriter.h"

#include "kit/TestProcess.h"

#include <QtCore/QFile>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

FifoWriter::FifoWriter(const QString& fifo)
    : descriptor(::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC))
{
    std::signal(SIGPIPE, SIG_IGN); // write() reports that there is no reader
}

FifoWriter::~FifoWriter()
{
    close();
}

FifoWriter::FifoWriter(FifoWriter&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1))
{
}

void FifoWriter::write(const QByteArray& bytes) const
{
    if (writeSome(bytes) != bytes.size()) {
        qFatal("the FIFO did not take %d bytes", bytes.size());
    }
}

int FifoWriter::writeSome(const QByteArray& bytes) const
{
    const ssize_t written =
        ::write(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return written < 0 && errno == EAGAIN ? 0 : static_cast<int>(written);
}

int FifoWriter::unread() const
{
    int bytes = 0;
    ::ioctl(descriptor, FIONREAD, &bytes);
    return bytes;
}

void FifoWriter::close()
{
    if (isOpen()) {
        ::close(std::exchange(descriptor, -1));
    }
}

bool hasReader(const QString& fifo)
{
    return FifoWriter(fifo).isOpen();
}

QString newFifoPath()
{
    static std::atomic<int> count{0};
    return TestProcess::path(QStringLiteral("fifo-%1").arg(++count));
}
