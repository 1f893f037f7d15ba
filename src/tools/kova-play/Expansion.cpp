#include "Expansion.h"

#include "PlaylistFile.h"

#include <QtCore/QMimeDatabase>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

using Entries = std::vector<expansion::Entry>;

constexpr int deepest = 8; // playlists in playlists; one may name itself

bool isAudio(const QString& fileName)
{
    const QList<QMimeType> types = QMimeDatabase().mimeTypesForFileName(fileName);
    return !playlistfile::isName(fileName) &&
           std::any_of(types.begin(), types.end(), [](const QMimeType& type) {
               return type.name().startsWith(QLatin1String("audio/"));
           });
}

/// The names of the audio files in a folder, "track 2" before "track 10".
std::vector<std::string> audioFilesIn(const QString& folder, std::error_code& error)
{
    std::vector<std::string> names;
    std::filesystem::directory_iterator entry(files::encoded(folder).toStdString(), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code unreadable;
        if (name.front() != '.' && entry->is_regular_file(unreadable) &&
            isAudio(files::decoded(QByteArray::fromStdString(name)))) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end(), [](const std::string& left, const std::string& right) {
        return strverscmp(left.c_str(), right.c_str()) < 0;
    });
    return names;
}

Entries entriesOfFolder(const QString& folder)
{
    std::error_code error;
    const std::vector<std::string> names = audioFilesIn(folder, error);
    if (error) {
        return {{folder,
                 {"the folder cannot be read",
                  QString("look at the permissions of '%1'").arg(folder)}}};
    }
    if (names.empty()) {
        return {{folder,
                 {"the folder holds no audio files", "folders in the folder are not looked into"}}};
    }
    Entries entries;
    for (const std::string& name : names) {
        const QString file = files::decoded(QByteArray::fromStdString(name));
        entries.push_back({folder.endsWith('/') ? folder + file : folder + '/' + file, {}});
    }
    return entries;
}

Entries entriesOf(const QString& item, int depth);

Entries entriesOfPlaylist(const QString& item, int depth)
{
    if (depth == deepest) {
        return {{item, {"there are too many playlists in each other", QString()}}};
    }
    const playlistfile::Result result = playlistfile::read(item);
    if (!result.problem.reason.isEmpty()) {
        return {{item, result.problem}};
    }
    Entries entries;
    for (const QString& name : result.items) {
        const Entries more = entriesOf(name, depth + 1);
        entries.insert(entries.end(), more.begin(), more.end());
    }
    return entries;
}

Entries entriesOf(const QString& item, int depth)
{
    const QString path = pathOfItem(item);
    if (!path.isEmpty() && files::isFolder(path)) {
        return entriesOfFolder(path);
    }
    if (playlistfile::isName(item) && (path.isEmpty() || files::isRegular(path))) {
        return entriesOfPlaylist(item, depth);
    }
    return {{item, {}}};
}

} // namespace

std::vector<expansion::Entry> expansion::expanded(const QStringList& items)
{
    Entries entries;
    for (const QString& item : items) {
        const Entries more = entriesOf(item, 0);
        entries.insert(entries.end(), more.begin(), more.end());
    }
    return entries;
}
