#ifndef KOVA_NAMED_PIPE_H
#define KOVA_NAMED_PIPE_H

#include "core/kova_api_export.h"

#include <QtCore/QObject>
#include <QtCore/QString>

#include <optional>
#include <string>
#include <utility>

class QSocketNotifier;

/// The reading end of a named pipe (FIFO) with a notifier for the Qt event loop.
///
/// Other processes may be able to replace the file at any time. Symbolic links are therefore never
/// followed, a file that is no FIFO is not opened, and what is read was checked after it was
/// opened. The /proc file system is not needed.
///
/// All functions are called on the thread that owns the object; the notifier needs the event loop
/// of that thread. Failures are logged at ERROR by the logger "KovaNamedPipe".
class KOVA_API_EXPORT KovaNamedPipe : public QObject
{
    Q_OBJECT

public:
    /// Constructs a closed pipe. No file is created or opened yet. Reads block until setNonBlock()
    /// is called.
    ///
    /// @param name           path of the FIFO, absolute or relative to the working directory
    /// @param id             a number chosen by the owner that identifies the pipe in log lines
    /// @param parent         the QObject parent, or null
    /// @param removeOnClose  true: close() removes the FIFO from the file system; false: it stays
    ///                       for a late writer or the next reader
    KovaNamedPipe(const QString& name, int id, QObject* parent, bool removeOnClose);

    /// Closes the pipe.
    ~KovaNamedPipe() override;

    /// Creates the FIFO with mode 0600, independent of the umask of the process. An existing FIFO
    /// is accepted, and its mode is not changed. With a umask that removes permissions of the
    /// owner, the C library may need /proc for this.
    ///
    /// @return false if there is no FIFO afterwards: another file has the name, or no FIFO can be
    ///         created
    bool create();

    /// Opens the FIFO for reading. Does nothing if it is open already.
    ///
    /// @param waitForWriter  true: blocks until a writer opens the FIFO, possibly for ever; false:
    ///                       returns immediately
    /// @return whether the pipe is open; false if the file does not exist, cannot be read, or is no
    ///         FIFO
    bool open(bool waitForWriter);

    /// Sets whether read() returns immediately (true) or blocks until there is data (false). May be
    /// called before and after open().
    void setNonBlock(bool enable);

    /// Reads the data that is in the pipe, at most `size` bytes.
    ///
    /// A non-blocking read cannot distinguish a pipe that no writer has opened yet from one whose
    /// writers have closed it: in this mode, read only when the notifier is activated.
    ///
    /// @param data  the caller's buffer. It is written to, despite the const of the given signature
    /// @param size  size of the buffer in bytes, at least 1
    /// @return the number of bytes read; 0 if no writer has the pipe open and all data was read; a
    ///         negative errno value if nothing could be read: -EAGAIN if a writer has the pipe open
    ///         but has written nothing (not logged), -EBADF if the pipe is not open, -EINVAL
    ///         without a buffer
    int read(const char* data, int size);

    /// Closes the pipe. Removes the FIFO if removeOnClose is set and no other file has taken its
    /// place. The notifier is disabled and deleted from the event loop, so that this may be called
    /// in the notifier's own slot. May be called any number of times; the pipe may be opened again.
    void close();

    /// Returns the notifier that is activated when there is data, and repeatedly when the last
    /// writer has closed the pipe. It is disabled until the caller enables it.
    ///
    /// @return the notifier, owned by the pipe and valid until close(); null if the pipe is closed
    QSocketNotifier* readNotifier();

private:
    /// Device and inode number of a file. Wide enough for every file system, whatever the
    /// including program defines for off_t and its like.
    using FileId = std::pair<quint64, quint64>;

    bool nameUsable(const char* failure) const;
    void applyNonBlock();
    void removeFifo();
    void logFailure(const char* failure, const std::string& reason) const;

    const QString path;
    const int number;
    const bool removesFifo;
    bool nonBlock = false;
    int descriptor = -1;
    QSocketNotifier* notifier = nullptr;
    /// The FIFO that was created or opened last, the only file that close() removes.
    std::optional<FileId> fifo;
};

#endif
