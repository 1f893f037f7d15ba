#include "Item.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

namespace {

const QLatin1String fileScheme("file://");

bool isWebUri(const QString& uri)
{
    return uri.startsWith(QLatin1String("http://")) || uri.startsWith(QLatin1String("https://"));
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
    // What follows the last slash, or everything when nothing does.
    const QString lastPart = uri.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty);
    return lastPart.isEmpty() ? uri : lastPart;
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

// ---- FakeItem ----------------------------------------------------------------------------------

FakeItem::FakeItem(const QString& shownName) : itemName(shownName)
{
}

std::unique_ptr<SimplePlayer> FakeItem::makePlayer(const QString& token,
                                                   const QString& /*device*/) const
{
    return std::make_unique<FakePlayer>(token);
}
