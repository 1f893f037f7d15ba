#ifndef SOAK_LIVES_H
#define SOAK_LIVES_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <vector>

/// One way in which a player can live and die.
struct Life
{
    QString name;
    /// Lives it from the construction of the player to its deletion. @return the outcomes
    std::function<QStringList()> live;
    QStringList outcomes; ///< what live() returns when all is well
};

/// All sources, outcomes and ways to die. Their items and cards are made here: the first life finds
/// everything in place.
std::vector<Life> allLives();

#endif
