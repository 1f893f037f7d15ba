#ifndef KOVA_PLAY_EXPANSION_H
#define KOVA_PLAY_EXPANSION_H

#include "Item.h"

#include <QtCore/QStringList>

#include <vector>

/// What the items of the command line mean: a folder the audio files in it, a playlist its entries.
namespace expansion {

struct Entry
{
    QString name;   ///< a path or URI, or "-"
    Advice problem; ///< why it cannot be played; without a reason when nothing is known against it
};

/// Replaces folders and playlists, also those that playlists name. A playlist on the web is loaded
/// now.
std::vector<Entry> expanded(const QStringList& items);

} // namespace expansion

#endif
