#include "Item.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <array>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QLatin1String fileScheme("file://");

bool isWebUri(const QString& uri)
{
    return uri.startsWith(QLatin1String("http://")) || uri.startsWith(QLatin1String("https://"));
}

/// What follows the last slash, or everything when nothing does.
QString lastPartOf(const QString& name)
{
    const QString lastPart = name.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty);
    return lastPart.isEmpty() ? name : lastPart;
}

/// What to try instead of the name of a file that does not exist.
QString hintOnMissingFile(const QString& uri, const QString& path)
{
    const QString decoded = QUrl::fromPercentEncoding(path.toUtf8());
    if (decoded != path && QFileInfo::exists(decoded)) {
        return QString("percent escapes are not decoded: name the file '%1'").arg(decoded);
    }
    if (uri.contains(QLatin1String("://")) && !uri.startsWith(fileScheme)) {
        return "an item is a path, or begins with http://, https:// or file:// in lower case";
    }
    return QString("'%1' does not exist: look at the spelling; relative paths count from the "
                   "current folder")
        .arg(path);
}

/// @return whether all bytes were written
bool writeAll(int output, const char* bytes, ssize_t count)
{
    while (count > 0) {
        const ssize_t written = ::write(output, bytes, static_cast<std::size_t>(count));
        if (written <= 0) {
            return false;
        }
        bytes += written;
        count -= written;
    }
    return true;
}

/// Writes standard input into a named pipe as soon as a player has it open. On a thread of its own,
/// which waits for either side.
void copyStandardInput(const QByteArray& fifo)
{
    sigset_t all;
    sigfillset(&all); // a player that closes the pipe must not end the process
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    const int output = ::open(fifo.constData(), O_WRONLY | O_CLOEXEC);
    std::array<char, 65536> bytes = {};
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    } while (count > 0 && writeAll(output, bytes.data(), count));
    ::close(output);
}

} // namespace

QString pathOfItem(const QString& item)
{
    if (isWebUri(item)) {
        return QString();
    }
    return item.startsWith(fileScheme) ? item.mid(fileScheme.size()) : item;
}

// ---- UriItem -----------------------------------------------------------------------------------

UriItem::UriItem(const QString& itemUri) : uri(itemUri), path(pathOfItem(itemUri))
{
}

std::unique_ptr<SimplePlayer> UriItem::makePlayer(const QString& token, const QString& device) const
{
    const bool isMisread = files::isRegular(path) && files::isMisreadInUri(path);
    const int descriptor = isMisread ? files::openForReading(path) : -1;
    if (descriptor < 0) {
        return std::make_unique<UriSimplePlayer>(uri, token, device);
    }
    auto player = std::make_unique<UriSimplePlayer>(files::pathOf(descriptor), token, device);
    QObject::connect(player.get(), &QObject::destroyed, [descriptor] { ::close(descriptor); });
    return player;
}

QString UriItem::name() const
{
    return lastPartOf(uri);
}

Advice UriItem::obstacle() const
{
    if (files::isPipe(path)) {
        // The player would wait for a writer, and for nothing else.
        return {"it is a named pipe", QString("use --pipe '%1'").arg(path)};
    }
    return {};
}

Advice UriItem::adviceOnFailedStart() const
{
    if (path.isEmpty()) {
        return {};
    }
    if (!files::exists(path)) {
        return {"file does not exist", hintOnMissingFile(uri, path)};
    }
    if (!files::isReadable(path)) {
        return {"file cannot be read", QString("look at the permissions of '%1'").arg(path)};
    }
    return {};
}

// ---- DataItem ----------------------------------------------------------------------------------

DataItem::DataItem(const QString& file) : path(file)
{
}

DataItem::DataItem(const files::Contents& contents) : input(contents)
{
}

std::unique_ptr<SimplePlayer> DataItem::makePlayer(const QString& token,
                                                   const QString& device) const
{
    files::Contents contents = input;
    if (!path.isEmpty()) {
        contents = files::isFolder(path)
                       ? files::Contents{QByteArray(), "it is a folder"}
                       : files::readAll(files::openForReading(path), files::largestArray);
        input.problem = contents.problem;
    }
    return std::make_unique<DataSimplePlayer>(contents.bytes, token, device);
}

Advice DataItem::obstacle() const
{
    if (input.problem.isEmpty()) {
        return {};
    }
    if (path.isEmpty()) {
        return {input.problem, "kova-play - plays standard input while it arrives"};
    }
    return {input.problem, QString("'%1' could not be read into memory").arg(path)};
}

QString DataItem::name() const
{
    return path.isEmpty() ? QString("-") : lastPartOf(path);
}

// ---- PipeItem ----------------------------------------------------------------------------------

PipeItem::PipeItem(const QString& fifo, const QString& streamCaps) : path(fifo), caps(streamCaps)
{
}

std::unique_ptr<SimplePlayer> PipeItem::makePlayer(const QString& token,
                                                   const QString& device) const
{
    return std::make_unique<StreamSimplePlayer>(path, caps, token, device);
}

Advice PipeItem::obstacle() const
{
    // The player makes the pipe when it is made itself, and does not say when it could not.
    struct stat status = {};
    if (lstat(QFile::encodeName(path).constData(), &status) != 0) {
        return {"the pipe could not be made",
                QString("may files be made in the folder of '%1'?").arg(path)};
    }
    if (!S_ISFIFO(status.st_mode)) {
        return {"it is not a named pipe",
                QString("something else is at '%1': name another path").arg(path)};
    }
    if (!QFileInfo(path).isReadable()) {
        return {"the pipe cannot be read", QString("look at the permissions of '%1'").arg(path)};
    }
    return {};
}

QString PipeItem::notice() const
{
    return QString("waiting for a writer: have a program write to '%1'").arg(path);
}

QString PipeItem::name() const
{
    return lastPartOf(path);
}

// ---- StandardInputItem -------------------------------------------------------------------------

StandardInputItem::StandardInputItem(const QString& streamCaps)
    : StandardInputItem(std::make_unique<QTemporaryDir>(), streamCaps)
{
}

StandardInputItem::StandardInputItem(std::unique_ptr<QTemporaryDir> pipeFolder,
                                     const QString& streamCaps)
    : PipeItem(pipeFolder->filePath("standard-input"), streamCaps), folder(std::move(pipeFolder))
{
}

std::unique_ptr<SimplePlayer> StandardInputItem::makePlayer(const QString& token,
                                                            const QString& device) const
{
    std::unique_ptr<SimplePlayer> player = PipeItem::makePlayer(token, device);
    // It ends with standard input, or when the player has closed the pipe; else with the process.
    std::thread(copyStandardInput, files::encoded(folder->filePath("standard-input"))).detach();
    return player;
}

Advice StandardInputItem::obstacle() const
{
    if (!folder->isValid()) {
        return {"there is no folder for a pipe",
                "may files be made in '" + QDir::tempPath() + "'?"};
    }
    return PipeItem::obstacle();
}

// ---- UnplayableItem ----------------------------------------------------------------------------

UnplayableItem::UnplayableItem(const QString& unplayable, const Advice& why)
    : item(unplayable), problem(why)
{
}

std::unique_ptr<SimplePlayer> UnplayableItem::makePlayer(const QString& token,
                                                         const QString& /*device*/) const
{
    return std::make_unique<FakePlayer>(token); // it is never started
}

QString UnplayableItem::name() const
{
    return lastPartOf(item);
}

// ---- FakeItem ----------------------------------------------------------------------------------

FakeItem::FakeItem(const QString& shownName) : itemName(shownName)
{
}

std::unique_ptr<SimplePlayer> FakeItem::makePlayer(const QString& token,
                                                   const QString& /*device*/) const
{
    return std::make_unique<FakePlayer>(token);
}
