#ifndef LIFECYCLE_PLAYBACK_H
#define LIFECYCLE_PLAYBACK_H

#include "kit/FifoWriter.h"
#include "kit/Source.h"
#include "kit/VirtualCard.h"

#include <QtCore/QPointer>
#include <QtCore/QRandomGenerator>

#include <array>
#include <optional>

/// How a client disposes of a player.
enum class Teardown
{
    Stopped,             ///< stops it, and deletes it after the outcome
    StoppedAndDeleted,   ///< stops and deletes it before any outcome can be delivered
    Deleted,             ///< deletes it
    DeletedLater,        ///< calls deleteLater() from the event loop
    DeletedLaterInASlot, ///< stops it, and calls deleteLater() in the slot of any outcome
    DeletedInASlot,      ///< stops it, and deletes it in the slot of any outcome
};
Q_DECLARE_METATYPE(Teardown)

inline constexpr std::array allTeardowns{
    Teardown::Stopped,      Teardown::StoppedAndDeleted,   Teardown::Deleted,
    Teardown::DeletedLater, Teardown::DeletedLaterInASlot, Teardown::DeletedInASlot};

const char* nameOf(Teardown teardown);

/// How far a playback has come.
enum class Progress
{
    Started,
    Prerolling, ///< the card is configured
    FirstFrame,
    Middle,
    Last50Ms,
    Finished, ///< there is an outcome
};

/// One player from construction to teardown on the thread that makes it, and its card.
class Playback
{
public:
    Playback(const Source& source, const Item& item, Teardown teardown,
             const QString& cardName = QStringLiteral("card"),
             const VirtualCard::Settings& settings = impatientCard());
    /// On a device that may not exist.
    Playback(const Source& source, const Item& item, Teardown teardown, const QString& cardName,
             const VirtualCard::Settings& settings, const QString& device);
    ~Playback();
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /// A card that does not wait for its client: what is played on a busy machine has gaps.
    static VirtualCard::Settings impatientCard();

    /// Starts without a writer. @return whether the start succeeds
    bool start();
    /// Starts and feeds the whole item. @return whether the start succeeds
    bool startAndFeed();

    Progress progress() const;
    bool isFinished() const { return progress() == Progress::Finished; }
    /// Runs the event loop until playback has come so far, or further. @return whether it has
    bool reach(Progress wanted) const;

    /// Disposes of the player, unless a slot has already done that.
    /// @return what is wrong with its outcomes; empty for nothing
    QString tearDown();

    /// The outcomes so far, without refused data where this is no outcome.
    QStringList outcomes() const { return player.outcomes(); }

    const VirtualCard card;
    SourcePlayer player;
    const QPointer<SimplePlayer> front; ///< null once the player was deleted
    std::optional<FifoWriter> writer;   ///< of a situation in which it keeps the FIFO open

private:
    bool stopsFirst() const;
    bool deletesInASlot() const;
    void dispose();
    void finish();
    QString problemOf(const QStringList& before) const;

    const qint64 frames;
    const Teardown teardown;
    bool started = false;
};

/// Plays a WAV item from a source with a client that waits for the end.
/// @return what is wrong with the outcome or the recorded samples; empty for nothing
QString problemOfWholePlayback(const Source& source, const Item& item,
                               const QString& cardName = QStringLiteral("card"));

/// Lets microseconds pass without sleeping, with or without running the event loop.
void letPass(int microseconds, bool runsEventLoop);
/// Lets up to so many microseconds pass; short times are more likely than long ones.
void letRandomTimePass(QRandomGenerator& random, int most, bool runsEventLoop);
/// The same, with or without running the event loop.
void letRandomTimePass(QRandomGenerator& random, int most);

/// Adds one row for each way to dispose of a player, with the column "teardown".
void addTeardowns();

#endif
