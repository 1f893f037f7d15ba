#ifndef KOVA_PLAY_ITEM_H
#define KOVA_PLAY_ITEM_H

#include <simplePlayer/SimplePlayerInterface.h>

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
