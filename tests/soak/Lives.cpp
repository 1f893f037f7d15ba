#include "Lives.h"

#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QFile>
#include <QtCore/QPointer>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <memory>

namespace {

const QString token = QStringLiteral("token");
const QStringList nothing;
const QStringList ended = {QStringLiteral("ended token")};
const QStringList stopped = {QStringLiteral("stopped token")};

QStringList failed(const char* reason)
{
    return {QStringLiteral("error token: ") + QLatin1String(reason)};
}

/// A player of one kind, new for each life.
using Maker = std::function<SimplePlayer*()>;
/// What is done between a start and the end of a life.
using Deed = std::function<void(PlayerProbe&)>;

void doNothing(PlayerProbe& /*probe*/)
{
}

/// Plays, does something, and waits for the outcome.
QStringList playToOutcome(const Maker& make, const Deed& deed = doNothing)
{
    PlayerProbe probe(make());
    probe->startPlayback();
    deed(probe);
    return probe.finish();
}

/// Plays, does something, and deletes the player at once.
QStringList playAndDestroy(const Maker& make, const Deed& deed = doNothing)
{
    PlayerProbe probe(make());
    probe->startPlayback();
    deed(probe);
    return probe.destroy();
}

void stop(PlayerProbe& probe)
{
    probe->stopPlayback();
}

void pauseAndStop(PlayerProbe& probe)
{
    probe->pausePlayback();
    probe->stopPlayback();
}

/// The player deletes itself in the slot that hears its outcome.
QStringList deletedInSlot(const Maker& make)
{
    QPointer<SimplePlayer> player = make();
    Outcomes outcomes(player);
    outcomes.inSlot = [&player] { player->deleteLater(); };
    player->startPlayback();
    waitFor([&player] { return player.isNull(); });
    return outcomes.all;
}

/// The other end of a FIFO that a player reads. Everything fits into the FIFO, so nothing waits.
class FifoWriter
{
public:
    explicit FifoWriter(const QString& fifo)
        : descriptor(open(QFile::encodeName(fifo).constData(), O_WRONLY | O_CLOEXEC | O_NONBLOCK))
    {
    }
    ~FifoWriter() { close(descriptor); }
    FifoWriter(const FifoWriter&) = delete;
    FifoWriter& operator=(const FifoWriter&) = delete;

    void write(const QByteArray& bytes) const
    {
        if (::write(descriptor, bytes.constData(), static_cast<size_t>(bytes.size())) !=
            bytes.size()) {
            qFatal("the FIFO did not take the item");
        }
    }

    /// How many bytes the player has not taken yet.
    int unread() const
    {
        int bytes = 0;
        ioctl(descriptor, FIONREAD, &bytes);
        return bytes;
    }

private:
    int descriptor;
};

} // namespace

std::vector<Life> allLives()
{
    const auto card = std::make_shared<VirtualCard>(QStringLiteral("soak")); // each life holds it
    const QString device = card->device();
    const media::Pcm sound = media::noise(media::SampleFormat::S16, 48000, 2, 2400);
    const QString wav = media::writeWav(QStringLiteral("soak.wav"), sound);
    const QString ogg = media::encode(QStringLiteral("soak.ogg"), wav);
    const QString text = media::writeFile(QStringLiteral("soak.txt"), QByteArray(5000, 'x'));
    const QByteArray bytes = media::wavBytes(sound);
    const QString fifo = TestProcess::path(QStringLiteral("soak.fifo"));

    const auto uri = [device](const QString& item) -> Maker {
        return [=] { return new UriSimplePlayer(item, token, device); };
    };
    const auto data = [device](const QByteArray& item) -> Maker {
        return [=] { return new DataSimplePlayer(item, token, device); };
    };
    const auto stream = [fifo](const QString& on) -> Maker {
        return [=] { return new StreamSimplePlayer(fifo, QString(), token, on); };
    };
    const Deed writeAll = [=](PlayerProbe& /*probe*/) { FifoWriter(fifo).write(bytes); };

    const auto waitForCard = [card](int sounds) {
        return [=](PlayerProbe& /*probe*/) {
            const qint64 before = card->frames();
            waitFor([=] { return card->frames() >= before + sounds * 2400; });
        };
    };

    std::vector<Life> lives;
    const auto add = [&lives, card](const char* name, const QStringList& outcomes,
                                    const std::function<QStringList()>& live) {
        lives.push_back({QString::fromLatin1(name), [card, live] { return live(); }, outcomes});
    };

    add("uri: WAV ends", ended, [=] { return playToOutcome(uri(wav)); });
    add("uri: Ogg ends", ended, [=] { return playToOutcome(uri(ogg)); });
    add("uri: stopped at once", stopped, [=] { return playToOutcome(uri(wav), stop); });
    add("uri: paused, stopped", stopped, [=] { return playToOutcome(uri(wav), pauseAndStop); });
    add("uri: loops, stopped", stopped, [=] {
        return playToOutcome(uri(wav), [=](PlayerProbe& probe) {
            probe->loop = true;
            waitForCard(3)(probe);
            probe->stopPlayback();
        });
    });
    add("uri: plays, stopped, plays", stopped, [=] {
        return playToOutcome(uri(wav), [=](PlayerProbe& probe) {
            probe->stopPlayback();
            probe->startPlayback();
            waitForCard(1)(probe);
        });
    });
    add("uri: destroyed at once", nothing, [=] { return playAndDestroy(uri(wav)); });
    add("uri: destroyed amid", nothing, [=] { return playAndDestroy(uri(wav), waitForCard(1)); });
    add("uri: stopped and destroyed", nothing, [=] { return playAndDestroy(uri(wav), stop); });
    add("uri: deleted in its slot", ended, [=] { return deletedInSlot(uri(ogg)); });
    add("uri: no such file", failed("Not initialized"),
        [=] { return playToOutcome(uri(QStringLiteral("/no/such/file")), stop); });
    add("uri: not audio", failed("This appears to be a text file"),
        [=] { return playToOutcome(uri(text)); });
    add("uri: no such device", failed("Could not open audio device for playback."), [=] {
        return playToOutcome([=] { return new UriSimplePlayer(wav, token, "no_such_device"); });
    });
    add("uri: never started", nothing, [=] { return PlayerProbe(uri(wav)()).destroy(); });

    add("data: ends", ended, [=] { return playToOutcome(data(bytes)); });
    add("data: stopped", stopped,
        [=] { return withoutRefusals(playToOutcome(data(bytes), stop)); });
    add("data: destroyed at once", nothing, [=] { return playAndDestroy(data(bytes)); });
    add("data: destroyed amid", nothing,
        [=] { return playAndDestroy(data(bytes), waitForCard(1)); });
    add("data: deleted in its slot", ended, [=] { return deletedInSlot(data(bytes)); });
    add("data: empty", failed("Stream contains no data."),
        [=] { return playToOutcome(data(QByteArray())); });

    add("stream: ends", ended, [=] { return playToOutcome(stream(device), writeAll); });
    add("stream: stopped while it waits", stopped,
        [=] { return playToOutcome(stream(device), stop); });
    add("stream: stopped amid", stopped, [=] {
        return playToOutcome(stream(device), [=](PlayerProbe& probe) {
            const FifoWriter writer(fifo);
            writer.write(bytes.left(bytes.size() / 2));
            waitFor([&writer] { return writer.unread() == 0; });
            probe->stopPlayback();
        });
    });
    add("stream: destroyed while it waits", nothing,
        [=] { return playAndDestroy(stream(device)); });
    add("stream: destroyed amid", nothing,
        [=] { return playAndDestroy(stream(device), writeAll); });
    add("stream: no such device", failed("Could not open audio device for playback."),
        [=] { return playToOutcome(stream(QStringLiteral("no_such_device"))); });

    add("fake: stopped", stopped,
        [] { return playAndDestroy([] { return new FakePlayer(token); }, stop); });
    return lives;
}
