#include "faults/Sources.h"

#include "kit/Media.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <algorithm>

const char* nameOf(Source source)
{
    static const char* const names[] = {"URI", "data", "pipe"};
    return names[static_cast<int>(source)];
}

/// A FIFO of its own for each player: a writer that is still blocked when its player is destroyed
/// would write the rest of its item into the next player that opens the same FIFO.
static QString newFifoPath()
{
    static int count = 0;
    return TestProcess::path(QStringLiteral("fifo-%1").arg(++count));
}

static SimplePlayer* makePlayer(Source source, const QByteArray& bytes, const QString& device,
                                const QString& fifo)
{
    const QString token = QStringLiteral("token");
    switch (source) {
    case Source::Uri:
        return new UriSimplePlayer(media::writeFile("faulty.item", bytes), token, device);
    case Source::Data:
        return new DataSimplePlayer(bytes, token, device);
    case Source::Pipe:
        break;
    }
    return new StreamSimplePlayer(fifo, QString(), token, device);
}

// ---- SourcedPlayer -----------------------------------------------------------------------------

SourcedPlayer::SourcedPlayer(Source itemSource, const QByteArray& item, const QString& device)
    : fifo(newFifoPath()), probe(makePlayer(itemSource, item, device, fifo)), source(itemSource),
      bytes(item)
{
}

bool SourcedPlayer::start(const PipeWriter::Manner& manner)
{
    sinceStart.start();
    const bool started = probe->startPlayback();
    if (started && source == Source::Pipe) {
        writer.emplace(fifo, bytes, manner);
    }
    return started;
}

QStringList SourcedPlayer::finish()
{
    const QStringList reports = probe.finish();
    tellMeasured(reports, sinceStart);
    return source == Source::Data ? withoutRefusals(reports) : reports;
}

// ---- What all tests share ----------------------------------------------------------------------

QString flawOfNextPlayer(Source source)
{
    const media::Pcm sound = media::noise(media::SampleFormat::S16, 48000, 2, 9600, 2);
    const VirtualCard card("next");
    SourcedPlayer next(source, media::wavBytes(sound), card.device());
    if (!next.start()) {
        return QStringLiteral("the next player does not start");
    }
    const QStringList outcomes = next.probe.finish();
    if (outcomes != QStringList("ended token")) {
        return "the next player reports " + outcomes.join(", ");
    }
    return difference(media::withoutTrailingSilence(card.samples(), sound.frameSize()),
                      sound.samples);
}

QString difference(const QByteArray& heard, const QByteArray& expected)
{
    if (heard == expected) {
        return QString();
    }
    const auto differing =
        std::mismatch(heard.begin(), heard.end(), expected.begin(), expected.end());
    return QStringLiteral(
               "%1 bytes were heard instead of %2, and byte %3 is the first that differs")
        .arg(heard.size())
        .arg(expected.size())
        .arg(differing.first - heard.begin());
}

bool isLong()
{
    return qEnvironmentVariableIntValue("KOVA_LONG_TESTS") > 0;
}

bool isMachineSlow()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return qEnvironmentVariableIsSet("KOVA_EMULATOR");
#endif
}

void tellMeasured(const QStringList& outcomes, const QElapsedTimer& since)
{
    qInfo("%s after %lld ms", qPrintable(outcomes.join(", ")),
          static_cast<long long>(since.elapsed()));
}
