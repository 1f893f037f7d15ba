#ifndef KOVA_PLAY_ITEM_H
#define KOVA_PLAY_ITEM_H

#include <simplePlayer/SimplePlayerInterface.h>

#include "Files.h"

#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <memory>

/// What can be said about a failure beside what the player reports.
struct Advice
{
    QString reason; ///< why it failed; empty when that is not known
    QString hint;   ///< what the user can do next; empty when there is nothing to add
};

/// The path of an item that is a local file: the item itself, or what follows "file://". Empty for
/// a web URI.
QString pathOfItem(const QString& item);

/// Something to play: one subclass for each kind of source.
class Item
{
public:
    virtual ~Item() = default;

    /// Makes the player of this item.
    /// @param token   what the player calls itself in its signals
    /// @param device  the ALSA device to play on
    virtual std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                                     const QString& device) const = 0;

    /// Why the player that was just made cannot play the item, so that it is not worth a start.
    /// @return an empty reason when nothing is known against it
    virtual Advice obstacle() const { return {}; }

    /// What the user must know once the item was started; empty when there is nothing to say.
    virtual QString notice() const { return QString(); }

    /// A short name to show.
    virtual QString name() const = 0;

    /// Whether a start is to be followed by a stop, as the player would never end by itself.
    virtual bool neverEnds() const { return false; }

    /// Whether another player can play the item after one has played it to its end.
    virtual bool canBeginAgain() const { return true; }

    /// Looks for the reason why a player of this item could not be started.
    virtual Advice adviceOnFailedStart() const { return {}; }
};

/// A local file or a web resource.
class UriItem : public Item
{
public:
    /// @param uri  a path, "file://" with a path, or a web URI
    explicit UriItem(const QString& uri);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    QString name() const override;
    Advice obstacle() const override;
    Advice adviceOnFailedStart() const override;

private:
    QString uri;
    QString path; ///< of a local file; empty on the web
};

/// A file that is read into memory whole and played from there.
class DataItem : public Item
{
public:
    /// @param file  path of the file
    explicit DataItem(const QString& file);
    /// @param contents  what was read from standard input
    explicit DataItem(const files::Contents& contents);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    Advice obstacle() const override;
    QString name() const override;

private:
    QString path;                  ///< empty for standard input
    mutable files::Contents input; ///< of a file the problem alone, known when a player was made
};

/// What another process writes into a named pipe.
class PipeItem : public Item
{
public:
    /// @param fifo        path of the pipe, which is made if it is not there
    /// @param streamCaps  what is written, as GStreamer describes it, or empty
    PipeItem(const QString& fifo, const QString& streamCaps);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    Advice obstacle() const override;
    QString notice() const override;
    QString name() const override;

private:
    QString path;
    QString caps;
};

/// Standard input while it arrives, by way of a named pipe of its own.
class StandardInputItem : public PipeItem
{
public:
    /// @param streamCaps  what arrives, as GStreamer describes it, or empty
    explicit StandardInputItem(const QString& streamCaps);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    Advice obstacle() const override;
    QString notice() const override { return QString(); }
    QString name() const override { return "-"; }
    bool canBeginAgain() const override { return false; }

private:
    StandardInputItem(std::unique_ptr<QTemporaryDir> pipeFolder, const QString& streamCaps);

    std::unique_ptr<QTemporaryDir> folder;
};

/// An item that is known to be unplayable.
class UnplayableItem : public Item
{
public:
    /// @param unplayable  its path or URI
    /// @param why         has a reason
    UnplayableItem(const QString& unplayable, const Advice& why);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    Advice obstacle() const override { return problem; }
    QString name() const override;

private:
    QString item;
    Advice problem;
};

/// An item whose player plays nothing.
class FakeItem : public Item
{
public:
    /// @param shownName  the name of the item that is not played
    explicit FakeItem(const QString& shownName);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    QString name() const override { return itemName; }
    bool neverEnds() const override { return true; }

private:
    QString itemName;
};

#endif
