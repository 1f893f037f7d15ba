#include "core/KovaNamedPipe.h"

#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>

#include <log4cplus/logger.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

static log4cplus::Logger logger = log4cplus::Logger::getInstance("KovaNamedPipe");

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
constexpr mode_t permissionBits = 07777;

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

/// Calls a system function again as long as a signal interrupts it.
template <typename Call>
auto retryInterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

const char* kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG:
        return "it is a regular file";
    case S_IFDIR:
        return "it is a directory";
    case S_IFLNK:
        return "it is a symbolic link";
    case S_IFSOCK:
        return "it is a socket";
    default:
        return "it is a device"; // nothing else is left
    }
}

/// Looks at the file at `path` without following a symbolic link.
/// @return why it is no FIFO; empty for a FIFO
std::string problemWith(const QByteArray& path, struct stat& status)
{
    if (::lstat(path.constData(), &status) != 0) {
        return errorText(errno);
    }
    return S_ISFIFO(status.st_mode) ? std::string() : kindOf(status.st_mode);
}

/// Restores the owner's permissions that the umask removed from a new FIFO. The file at `path` may
/// have been replaced since it was made: a symbolic link is not followed.
std::string giveToOwner(const QByteArray& path, const struct stat& status)
{
    const bool done = (status.st_mode & permissionBits) == ownerOnly ||
                      ::fchmodat(AT_FDCWD, path.constData(), ownerOnly, AT_SYMLINK_NOFOLLOW) == 0;
    return done ? std::string() : errorText(errno);
}

/// Opens the FIFO at `path` for reading. A file that is no FIFO is not opened. If another process
/// replaces the FIFO at this very moment, the file in its place is closed again unread.
/// @return why it cannot be opened; empty when `descriptor` and `status` are those of the FIFO
std::string openFifo(const QByteArray& path, int flags, int& descriptor, struct stat& status)
{
    std::string problem = problemWith(path, status);
    if (!problem.empty()) {
        return problem;
    }
    descriptor = retryInterrupted([&] { return ::open(path.constData(), flags | O_NOFOLLOW); });
    if (descriptor < 0) {
        return errorText(errno);
    }
    if (::fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode)) {
        ::close(descriptor);
        descriptor = -1;
        return kindOf(status.st_mode);
    }
    return std::string();
}

std::pair<quint64, quint64> fileId(const struct stat& status)
{
    return {status.st_dev, status.st_ino};
}

} // namespace

// NOLINTNEXTLINE(modernize-pass-by-value): the signature is given
KovaNamedPipe::KovaNamedPipe(const QString& name, int id, QObject* parent, bool removeOnClose)
    : QObject(parent), path(name), number(id), removesFifo(removeOnClose)
{
}

KovaNamedPipe::~KovaNamedPipe()
{
    close();
}

bool KovaNamedPipe::create()
{
    static constexpr const char* failure = "Failed to create named pipe";
    if (!nameUsable(failure)) {
        return false;
    }
    const QByteArray encoded = QFile::encodeName(path);
    const bool made = ::mkfifo(encoded.constData(), ownerOnly) == 0;
    if (!made && errno != EEXIST) {
        logFailure(failure, errorText(errno));
        return false;
    }
    struct stat status = {};
    std::string problem = problemWith(encoded, status);
    if (made && problem.empty()) {
        problem = giveToOwner(encoded, status);
    }
    if (!problem.empty()) {
        logFailure(failure, problem);
        return false;
    }
    fifo = fileId(status);
    return true;
}

bool KovaNamedPipe::open(bool waitForWriter)
{
    static constexpr const char* failure = "Failed to open named pipe";
    if (descriptor >= 0) {
        return true;
    }
    if (!nameUsable(failure)) {
        return false;
    }
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | (waitForWriter ? 0 : O_NONBLOCK);
    struct stat status = {};
    const std::string problem = openFifo(QFile::encodeName(path), flags, descriptor, status);
    if (!problem.empty()) {
        logFailure(failure, problem);
        return false;
    }
    fifo = fileId(status);
    applyNonBlock();
    notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
    notifier->setEnabled(false);
    return true;
}

void KovaNamedPipe::setNonBlock(bool enable)
{
    nonBlock = enable;
    if (descriptor >= 0) {
        applyNonBlock();
    }
}

int KovaNamedPipe::read(const char* data, int size)
{
    // Reading no bytes would return 0, which means that there is no writer.
    if (data == nullptr || size <= 0) {
        logFailure("Failed to read named pipe", "there is no buffer");
        return -EINVAL;
    }
    // The parameter is const because clients were compiled against this signature.
    char* const buffer = const_cast<char*>(data);
    const ssize_t count = retryInterrupted(
        [&] { return ::read(descriptor, buffer, static_cast<std::size_t>(size)); });
    if (count >= 0) {
        return static_cast<int>(count);
    }
    const int error = errno;
    if (error != EAGAIN) {
        logFailure("Failed to read named pipe", errorText(error));
    }
    return -error;
}

void KovaNamedPipe::close()
{
    if (notifier != nullptr) {
        // Before the descriptor is closed: Qt warns about a notifier that outlives its descriptor.
        notifier->setEnabled(false);
        notifier->deleteLater();
        notifier = nullptr;
    }
    // Before the descriptor is closed: an open inode number is not given to a new file.
    removeFifo();
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

QSocketNotifier* KovaNamedPipe::readNotifier()
{
    return notifier;
}

bool KovaNamedPipe::nameUsable(const char* failure) const
{
    // The system would use only the part before a null character.
    const char* const reason = path.isEmpty()               ? "the name is empty"
                               : path.contains(QChar::Null) ? "the name contains a null character"
                                                            : nullptr;
    if (reason != nullptr) {
        logFailure(failure, reason);
    }
    return reason == nullptr;
}

void KovaNamedPipe::applyNonBlock()
{
    // No other flag that fcntl() can change is in use.
    ::fcntl(descriptor, F_SETFL, nonBlock ? O_NONBLOCK : 0);
}

void KovaNamedPipe::removeFifo()
{
    static constexpr const char* failure = "Failed to remove named pipe";
    if (!removesFifo || !fifo) {
        return;
    }
    const FileId ours = *fifo;
    fifo.reset();
    const QByteArray encoded = QFile::encodeName(path);
    // No system call removes a file only if it is a certain one: a file that replaces the FIFO
    // between the check and the removal is removed instead.
    struct stat status = {};
    if (::lstat(encoded.constData(), &status) == 0 && fileId(status) != ours) {
        logFailure(failure, "another file has taken its place");
    } else if (::unlink(encoded.constData()) != 0 && errno != ENOENT) {
        logFailure(failure, errorText(errno));
    }
}

void KovaNamedPipe::logFailure(const char* failure, const std::string& reason) const
{
    if (logger.isEnabledFor(log4cplus::ERROR_LOG_LEVEL)) {
        logger.forcedLog(log4cplus::ERROR_LOG_LEVEL, std::string(failure) + ", " + reason +
                                                         ", id: " + std::to_string(number) +
                                                         " name: " + path.toStdString());
    }
}
