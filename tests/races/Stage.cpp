#include "Stage.h"

#include "kit/PlayerProbe.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <unistd.h>

static const QString token = QStringLiteral("token");

const char* nameOf(Source source)
{
    switch (source) {
    case Source::Uri:
        return "uri";
    case Source::Data:
        return "data";
    case Source::Stream:
        return "stream";
    }
    return "";
}

Item::Item(int frames)
    : sound(media::noise(media::SampleFormat::S16, 48000, 2, frames)), wav(media::wavBytes(sound)),
      file(media::writeWav(QStringLiteral("item.wav"), sound))
{
}

Stage::Stage(Source sourceOfPlayers, const Item& itemToPlay, const QString& name,
             const VirtualCard::Settings& settings)
    : source(sourceOfPlayers), item(itemToPlay), card(name, settings),
      fifo(TestProcess::path(name + QStringLiteral(".fifo")))
{
}

VirtualCard::Settings Stage::impatient()
{
    VirtualCard::Settings settings;
    settings.underruns = true;
    return settings;
}

SimplePlayer* Stage::newPlayer() const
{
    switch (source) {
    case Source::Uri:
        return new UriSimplePlayer(item.file, token, card.device());
    case Source::Data:
        return new DataSimplePlayer(item.wav, token, card.device());
    case Source::Stream:
        return new StreamSimplePlayer(fifo, QString(), token, card.device());
    }
    return nullptr;
}

/// Writes bytes that fit into a FIFO, and closes it.
static void writeInto(const QString& fifo, const QByteArray& bytes)
{
    const int writer =
        ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (::write(writer, bytes.constData(), static_cast<std::size_t>(bytes.size())) !=
        bytes.size()) {
        qFatal("the FIFO did not take the item");
    }
    ::close(writer);
}

void Stage::play(SimplePlayer& player) const
{
    if (!player.startPlayback()) {
        qFatal("a player did not start");
    }
    if (source == Source::Stream) {
        writeInto(fifo, item.wav);
    }
}

bool Stage::isTaken() const
{
    // Without a reader there is nothing to be opened.
    const int writer =
        ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (writer >= 0) {
        ::close(writer);
    }
    return writer < 0;
}

qint64 Stage::heardFrames() const
{
    const qint64 header = 44;
    const qint64 size = QFileInfo(card.recordPath()).size();
    return qMax(qint64(0), size - header) / item.sound.frameSize();
}

QString Stage::difference() const
{
    const QByteArray heard = media::withoutTrailingSilence(card.samples(), item.sound.frameSize());
    return heard == item.sound.samples
               ? QString()
               : QStringLiteral("%1 bytes were heard that are not the item").arg(heard.size());
}

QString playWhole(Source source, const Item& item, const QString& name)
{
    const Stage stage(source, item, name, VirtualCard::Settings());
    PlayerProbe probe(stage.newPlayer());
    stage.play(*probe.player);
    const QStringList outcomes = probe.finish();
    if (outcomes != QStringList("ended token")) {
        return QStringLiteral("the outcome was \"%1\"").arg(outcomes.join("\", \""));
    }
    return stage.difference();
}
