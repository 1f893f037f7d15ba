#include "Item.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <sys/stat.h>

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

} // namespace

// ---- UriItem -----------------------------------------------------------------------------------

UriItem::UriItem(const QString& itemUri) : uri(itemUri)
{
}

std::unique_ptr<SimplePlayer> UriItem::makePlayer(const QString& token, const QString& device) const
{
    return std::make_unique<UriSimplePlayer>(uri, token, device);
}

QString UriItem::name() const
{
    return lastPartOf(uri);
}

Advice UriItem::adviceOnFailedStart() const
{
    if (isWebUri(uri)) {
        return {};
    }
    const QString path = uri.startsWith(fileScheme) ? uri.mid(fileScheme.size()) : uri;
    const QFileInfo file(path);
    if (!file.exists()) {
        return {"file does not exist", hintOnMissingFile(uri, path)};
    }
    if (file.isDir()) {
        return {"it is a folder", "name the files in the folder"};
    }
    if (path.contains(QLatin1Char('#')) || path.contains(QLatin1Char('%'))) {
        return {QString(), "a file with '#' or '%' in its name or folder cannot be played: rename "
                           "it, or play a link to it"};
    }
    if (!file.isReadable()) {
        return {"file cannot be read", QString("look at the permissions of '%1'").arg(path)};
    }
    return {};
}

// ---- DataItem ----------------------------------------------------------------------------------

DataItem::DataItem(const QString& file) : path(file)
{
}

DataItem::DataItem(const QByteArray& bytes) : standardInput(bytes)
{
}

std::unique_ptr<SimplePlayer> DataItem::makePlayer(const QString& token,
                                                   const QString& device) const
{
    QByteArray bytes = standardInput;
    if (!path.isEmpty()) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            bytes = file.readAll();
        }
        readProblem = file.error() == QFileDevice::NoError ? QString() : file.errorString();
    }
    return std::make_unique<DataSimplePlayer>(bytes, token, device);
}

Advice DataItem::obstacle() const
{
    if (readProblem.isEmpty()) {
        return {};
    }
    return {readProblem, QString("'%1' could not be read into memory").arg(path)};
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

// ---- FakeItem ----------------------------------------------------------------------------------

FakeItem::FakeItem(const QString& shownName) : itemName(shownName)
{
}

std::unique_ptr<SimplePlayer> FakeItem::makePlayer(const QString& token,
                                                   const QString& /*device*/) const
{
    return std::make_unique<FakePlayer>(token);
}
