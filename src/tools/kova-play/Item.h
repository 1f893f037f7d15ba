#ifndef KOVA_PLAY_ITEM_H
#define KOVA_PLAY_ITEM_H

#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>

/// What can be said about a failure beside what the player reports.
struct Advice
{
    QString reason; ///< why it failed; empty when that is not known
    QString hint;   ///< what the user can do next; empty when there is nothing to add
};

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
    Advice adviceOnFailedStart() const override;

private:
    QString uri;
};

/// A file that is read into memory whole and played from there.
class DataItem : public Item
{
public:
    /// @param file  path of the file
    explicit DataItem(const QString& file);
    /// @param bytes  what was read from standard input
    explicit DataItem(const QByteArray& bytes);

    std::unique_ptr<SimplePlayer> makePlayer(const QString& token,
                                             const QString& device) const override;
    Advice obstacle() const override;
    QString name() const override;

private:
    QString path;                ///< empty for standard input
    QByteArray standardInput;    ///< what was read from it
    mutable QString readProblem; ///< why the file could not be read, known when a player was made
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
