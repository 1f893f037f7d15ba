#ifndef KOVA_PLAY_PLAYLIST_H
#define KOVA_PLAY_PLAYLIST_H

#include "Playback.h"

#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>
#include <vector>

/// All items of a run: begins them one after the other, or all at once.
class Playlist : public QObject
{
    Q_OBJECT

public:
    /// How the items are played.
    struct Manner
    {
        QString device;
        Loop loop = Loop::No;
        bool atOnce = false;
    };

    explicit Playlist(const Manner& howToPlay);
    ~Playlist() override;

    /// Appends an item. Before begin() only.
    void add(std::unique_ptr<Item> item, const QString& token);

    /// Begins to play. allFinished() follows from the event loop.
    void begin();
    /// Reports each item as failed instead of playing it. allFinished() follows.
    void refuseAll(const QString& reason, const QString& hint);

    /// Pauses what plays, or, when nothing does, resumes what is paused.
    void togglePause();
    /// Pauses what plays, until resumeSuspended().
    void suspend();
    /// Resumes what suspend() has paused, and nothing else.
    void resumeSuspended();
    /// Stops what is being played; the next item follows.
    void stopCurrent();
    /// Stops what is being played; the items that were not begun are reported as stopped.
    void quit();

    /// How many items there are.
    int size() const { return static_cast<int>(playbacks.size()); }
    /// How many items have been begun, those included that have an outcome.
    int begun() const { return next; }
    /// The items that were begun and have no outcome.
    std::vector<const Playback*> current() const;

Q_SIGNALS:
    /// An item was started that the user should know something about.
    void noticed(const QString& notice);
    /// An item has its outcome. Emitted once for each.
    void outcomeKnown(const QString& token, const Outcome& outcome);
    /// All items have their outcomes, and the device is free.
    void allFinished();

private:
    std::vector<Playback*> inState(Playback::State state) const;
    void beginNext();
    void countFinished();

    Manner manner;
    std::vector<std::unique_ptr<Playback>> playbacks;
    std::vector<Playback*> suspended;
    int next = 0; ///< index of the first item that was not begun
    int finishedItems = 0;
    bool quitting = false;
};

#endif
