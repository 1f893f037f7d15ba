#ifndef RACES_STAGE_H
#define RACES_STAGE_H

#include "kit/Media.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/SimplePlayerInterface.h>

#include <QtCore/QMetaType>

/// The kinds of source.
enum class Source
{
    Uri,
    Data,
    Stream,
};
Q_DECLARE_METATYPE(Source)

constexpr Source allSources[] = {Source::Uri, Source::Data, Source::Stream};

const char* nameOf(Source source);

/// Noise of 48 kHz, as a file and in memory. The end of an item takes its real time, whatever the
/// speed of the card: GStreamer waits by the clock of the system until the sink has played it.
struct Item
{
    /// Fits into a FIFO as a whole.
    explicit Item(int frames);

    media::Pcm sound;
    QByteArray wav;
    QString file;
};

/// A source and a card that has played nothing yet: the place of one life.
class Stage
{
public:
    /// @param name  no other living stage has it
    Stage(Source source, const Item& item, const QString& name,
          const VirtualCard::Settings& settings = impatient());

    /// A card that waits for nobody, not even for a test that lets time pass busily. What is played
    /// on a machine that has other things to do has gaps.
    static VirtualCard::Settings impatient();

    /// Makes a player with the token "token" on the calling thread.
    SimplePlayer* newPlayer() const;

    /// Starts a player; into a pipe the item is written, too.
    void play(SimplePlayer& player) const;

    /// Whether the player has taken the whole item out of its pipe, if it has one: its end comes
    /// then without the event loop.
    bool isTaken() const;

    /// How many frames the card has played. Does not read them.
    qint64 heardFrames() const;

    /// How what the card has played differs from the item; empty when it does not.
    QString difference() const;

    const Source source;
    const Item& item;
    const VirtualCard card;
    const QString fifo; ///< of a stream
};

/// Plays the item as a client does that has no hurry. @return what went wrong, empty for nothing
QString playWhole(Source source, const Item& item, const QString& name);

#endif
