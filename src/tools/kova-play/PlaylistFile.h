#ifndef KOVA_PLAY_PLAYLIST_FILE_H
#define KOVA_PLAY_PLAYLIST_FILE_H

#include "Item.h"

#include <QtCore/QStringList>

/// Files that list what is to be played: .m3u, .m3u8 and .pls.
namespace playlistfile {

/// Whether a path or URI ends like that of a playlist.
bool isName(const QString& item);

struct Result
{
    QStringList items; ///< paths and web URIs
    Advice problem;    ///< why there are no items
};

/// Reads a playlist. One on the web may take ten seconds to arrive.
/// @param item  a path, "file://" with a path, or a web URI
Result read(const QString& item);

} // namespace playlistfile

#endif
