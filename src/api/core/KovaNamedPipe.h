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
/// Every function is called on the thread that owns the object; the notifier needs that thread's
/// event loop. Failures are logged at ERROR under the logger "KovaNamedPipe".
class KOVA_API_EXPORT KovaNamedPipe : public QObject
{
    Q_OBJECT

public:
    /// Prepares a closed pipe; nothing is made or opened yet. Reads wait for data until
    /// setNonBlock() says otherwise.
    ///
    /// @param name           path of the FIFO, absolute or relative to the working directory
    /// @param id             a number of the owner's choice that tells its pipes apart in log lines
    /// @param parent         the owner; may be null
    /// @param removeOnClose  true: close() removes the FIFO from the file system; false: it stays
    ///                       for a late writer or the next reader
    KovaNamedPipe(const QString& name, int id, QObject* parent, bool removeOnClose);

    /// Closes the pipe.
    ~KovaNamedPipe() override;

    /// Makes the FIFO with mode 0600, whatever the process's umask is. A FIFO that exists already
    /// is accepted with the mode that its owner gave it. With a umask that removes permissions of
    /// the owner, the C library may need /proc for this.
    ///
    /// @return false when there is no FIFO afterwards: something else has the name, or the FIFO
    ///         cannot be made
    bool create();

    /// Opens the FIFO for reading. Does nothing when it is open already.
    ///
    /// @param waitForWriter  true: returns when a writer has opened its end, which may be never;
    ///                       false: returns at once
    /// @return whether the pipe is open; false when there is no such file, it may not be read, or
    ///         it is no FIFO
    bool open(bool waitForWriter);

    /// Decides whether read() returns at once (true) or waits for data (false). Allowed before and
    /// after open().
    void setNonBlock(bool enable);

    /// Reads what the writers have written so far, at most `size` bytes.
    ///
    /// A pipe that no writer has opened yet looks like one whose writers are gone: when reading
    /// without waiting, read only when the notifier says so.
    ///
    /// @param data  the caller's buffer, which is written into
    /// @param size  its size in bytes, at least 1
    /// @return the number of bytes read; 0 when no writer has the pipe open and all was read; the
    ///         negative errno value when nothing could be read: -EAGAIN when a writer has the pipe
    ///         open but has written nothing (not logged), -EBADF when the pipe is not open,
    ///         -EINVAL without a buffer
    int read(const char* data, int size);

    /// Closes the pipe, and removes the FIFO if the constructor was told so and no other file is
    /// found in its place. Its notifier reports nothing from now on and is deleted from the event
    /// loop, so that this may be called inside the notifier's own slot. May be called any number of
    /// times; the pipe may be opened again.
    void close();

    /// The notifier that reports that data can be read or that the last writer is gone, which it
    /// then repeats until the pipe is closed. Disabled until the caller enables it.
    ///
    /// @return the notifier, owned by the pipe and valid until close(); null when not open
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
    /// The FIFO that was made or opened last; the only file that close() may remove.
    std::optional<FileId> fifo;
};

#endif
