#include "kit/Source.h"

#include "kit/FifoWriter.h"
#include "kit/Media.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <algorithm>
#include <atomic>

// ---- Item --------------------------------------------------------------------------------------

static QString newFileName()
{
    static std::atomic<int> count{0};
    return QStringLiteral("item-%1").arg(++count);
}

Item::Item(const QByteArray& content)
    : bytes(content), file(media::writeFile(newFileName(), content)), fifo(newFifoPath())
{
}

Item::Item(const media::Pcm& sound) : Item(media::wavBytes(sound))
{
}

Item Item::again() const
{
    Item copy = *this;
    copy.fifo = newFifoPath();
    return copy;
}

// ---- Source ------------------------------------------------------------------------------------

static SimplePlayer* makeUriPlayer(const Item& item, const QString& token, const QString& device,
                                   QObject* parent)
{
    return new UriSimplePlayer(item.file, token, device, parent);
}

static SimplePlayer* makeDataPlayer(const Item& item, const QString& token, const QString& device,
                                    QObject* parent)
{
    return new DataSimplePlayer(item.bytes, token, device, parent);
}

static SimplePlayer* makeStreamPlayer(const Item& item, const QString& token, const QString& device,
                                      QObject* parent)
{
    return new StreamSimplePlayer(item.fifo, item.caps, token, device, parent);
}

//                               name     loops  again  writer refusals
static const Source uriSource{"uri", true, true, false, false, makeUriPlayer};
static const Source dataSource{"data", false, true, false, true, makeDataPlayer};
static const Source streamSource{"stream", false, false, true, false, makeStreamPlayer};

const QVector<const Source*>& Source::all()
{
    static const QVector<const Source*> sources{&uriSource, &dataSource, &streamSource};
    return sources;
}

const Source& Source::uri()
{
    return uriSource;
}

const Source& Source::data()
{
    return dataSource;
}

const Source& Source::stream()
{
    return streamSource;
}

// ---- SourcePlayer ------------------------------------------------------------------------------

SourcePlayer::SourcePlayer(const Source& kind, const Item& itemToPlay, const QString& device)
    : source(kind), item(itemToPlay),
      probe(source.makePlayer(item, QStringLiteral("token"), device, nullptr))
{
}

bool SourcePlayer::start(const PipeWriter::Manner& manner)
{
    const bool started = probe->startPlayback();
    if (started && source.hasWriter) {
        writer.emplace(item.fifo, item.bytes, manner);
    }
    return started;
}

bool SourcePlayer::startAndFeed()
{
    const bool started = probe->startPlayback();
    if (started && source.hasWriter) {
        FifoWriter(item.fifo).write(item.bytes);
    }
    return started;
}

bool SourcePlayer::isFed() const
{
    // The reader closes the FIFO when it finds its end.
    return !source.hasWriter || !hasReader(item.fifo);
}

bool SourcePlayer::waitForOutcome() const
{
    return waitFor([this] { return !outcomes().isEmpty(); });
}

QStringList SourcePlayer::finish()
{
    // A refusal may come before the outcome.
    waitForOutcome();
    return withoutRefusals(probe.finish());
}

QStringList SourcePlayer::outcomes() const
{
    return withoutRefusals(probe.outcomes.all);
}

QStringList SourcePlayer::withoutRefusals(QStringList reports) const
{
    return source.reportsRefusals ? ::withoutRefusals(std::move(reports)) : reports;
}
