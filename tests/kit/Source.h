#ifndef KIT_SOURCE_H
#define KIT_SOURCE_H

#include "kit/PipeWriter.h"
#include "kit/PlayerProbe.h"
#include "kit/Sound.h"

#include <QtCore/QMetaType>
#include <QtCore/QVector>

#include <memory>
#include <optional>

/// The bytes of one item, in all the places from which a player may take them.
struct Item
{
    /// An item whose fields are still to be set.
    Item() = default;
    /// Writes the file now. The FIFO is made by the player that reads it.
    /// @param bytes  a whole sound file; anything that is not one plays as what it is
    explicit Item(const QByteArray& bytes);
    /// A WAV file.
    explicit Item(const media::Pcm& sound);

    /// The same item with a FIFO of its own, for one more player.
    Item again() const;

    QByteArray bytes;
    QString file;
    QString fifo;
    QString caps; ///< of the bytes in the FIFO; empty lets the decoder find out
};

/// A kind of source, with everything that suites must know of it: they iterate over all() and name
/// no kind. A new kind is one more object in Source.cpp.
class Source
{
public:
    /// All kinds, in the order of the documentation.
    static const QVector<const Source*>& all();
    static const Source& uri();    ///< UriSimplePlayer, of a file
    static const Source& data();   ///< DataSimplePlayer
    static const Source& stream(); ///< StreamSimplePlayer

    const char* name; ///< for rows and messages
    bool loops;       ///< whether it begins again at its end
    bool playsAgain;  ///< whether a start after a stop plays the item again
    bool hasWriter;   ///< whether another process writes the item while it is played
    /// Whether data that GStreamer refuses is reported beside the outcome ("Failed to push
    /// buffer").
    bool reportsRefusals;

    /// Makes a player. @return the player, owned by `parent` or else by the caller
    SimplePlayer* (*makePlayer)(const Item& item, const QString& token, const QString& device,
                                QObject* parent);
};
Q_DECLARE_METATYPE(const Source*)

/// A player of one item, what it reports, and its writer if it has one. The token is "token".
class SourcePlayer
{
public:
    SourcePlayer(const Source& source, const Item& item, const QString& device);

    /// Starts the player. If the start succeeds, another process writes the item, if there is one.
    /// @param manner  how that process writes
    bool start(const PipeWriter::Manner& manner = PipeWriter::Manner());

    /// Starts the player and writes the whole item into its FIFO at once, if there is one. The item
    /// must fit into the FIFO: less than 64 KiB.
    bool startAndFeed();

    /// Whether the player has taken all of its item out of the FIFO. True without a FIFO.
    bool isFed() const;

    /// Runs the event loop until an outcome was reported. @return whether there was one in time
    bool waitForOutcome() const;

    /// Plays to the outcome. @return all outcomes, also of a stop after the first one, without
    /// refused data where these are no outcome
    QStringList finish();

    /// The outcomes so far, without refused data where this is no outcome.
    QStringList outcomes() const;

    SimplePlayer* operator->() const { return probe.player.get(); }

    const Source& source;
    const Item item;
    PlayerProbe probe;
    std::optional<PipeWriter> writer;

private:
    QStringList withoutRefusals(QStringList reports) const;
};

#endif
