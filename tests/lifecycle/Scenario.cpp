#include "Scenario.h"

#include "kit/Media.h"

static Item missingItem()
{
    Item item{QByteArray()};
    item.file = QStringLiteral("/no/such/file");
    return item;
}

static QByteArray encodedTone()
{
    const QString wav = media::writeWav(QStringLiteral("tone.wav"), media::tone(48000, 2, 4800));
    return media::readFile(media::encode(QStringLiteral("tone.ogg"), wav));
}

Items::Items()
    : sound(media::noise(4800)), compressed(encodedTone()), text(QByteArray(5000, 'x')),
      empty(QByteArray()), missing(missingItem())
{
}

// ---- Situations --------------------------------------------------------------------------------

namespace {

bool suitsAll(const Source& /*source*/)
{
    return true;
}

bool playsAgain(const Source& source)
{
    return source.playsAgain;
}

bool isFile(const Source& source)
{
    return &source == &Source::uri();
}

bool canLoop(const Source& source)
{
    return source.loops;
}

bool hasWriter(const Source& source)
{
    return source.hasWriter;
}

bool doNothing(Playback& /*playback*/)
{
    return true;
}

template <Progress progress>
bool playTo(Playback& playback)
{
    return playback.startAndFeed() && playback.reach(progress);
}

bool playToTheEnd(Playback& playback)
{
    return playTo<Progress::Finished>(playback) &&
           playback.outcomes() == QStringList("ended token");
}

bool pause(Playback& playback)
{
    return playback.startAndFeed() && playback.player->pausePlayback();
}

bool loop(Playback& playback)
{
    playback.player->loop = true;
    return playback.startAndFeed() && playback.card.waitForFrames(3 * 4800) &&
           playback.outcomes().isEmpty();
}

bool stopAndStart(Playback& playback)
{
    // The slot of the stop may delete the player.
    return playback.startAndFeed() && playback.player->stopPlayback() &&
           playback.player->startPlayback() && waitFor([&playback] {
               return playback.front.isNull() ||
                      (playback.isFinished() && playback.card.frames() >= 2400);
           });
}

bool startOnly(Playback& playback)
{
    return playback.start();
}

bool feedHalf(Playback& playback)
{
    if (!playback.start()) {
        return false;
    }
    const QByteArray& bytes = playback.player.item.bytes;
    const FifoWriter& writer = playback.writer.emplace(playback.player.item.fifo);
    writer.write(bytes.left(bytes.size() / 2));
    return waitFor([&writer] { return writer.unread() == 0; });
}

bool failToStart(Playback& playback)
{
    return !playback.start();
}

/// @param reason  what the reason begins with
bool failsWith(const Playback& playback, const char* reason)
{
    return playback.reach(Progress::Finished) && playback.outcomes().size() == 1 &&
           playback.outcomes().constFirst().startsWith(QLatin1String("error token: ") + reason);
}

bool failOnDevice(Playback& playback)
{
    return !playback.start() && failsWith(playback, "Could not open audio device for playback.");
}

bool failOnText(Playback& playback)
{
    return playback.startAndFeed() && failsWith(playback, "This appears to be a text file");
}

bool failOnNothing(Playback& playback)
{
    return playback.startAndFeed() && failsWith(playback, "Stream "); // contains no data
}

bool loseCard(Playback& playback)
{
    return playTo<Progress::Finished>(playback) && playback.outcomes().size() == 1 &&
           (playback.outcomes().constFirst() == "ended token" || // a busy machine is too slow
            playback.outcomes().constFirst().startsWith("error token: "));
}

const Situation situations[] = {
    {"not started", suitsAll, doNothing},
    {"started", suitsAll, playTo<Progress::Started>},
    {"prerolling", suitsAll, playTo<Progress::Prerolling>},
    {"at the first frame", suitsAll, playTo<Progress::FirstFrame>},
    {"in the middle", suitsAll, playTo<Progress::Middle>},
    {"in the last 50 ms", suitsAll, playTo<Progress::Last50Ms>},
    {"ended", suitsAll, playToTheEnd},
    {"ended, compressed", suitsAll, playToTheEnd, &Items::compressed},
    {"paused", suitsAll, pause},
    {"looping", canLoop, loop},
    {"stopped and started again", playsAgain, stopAndStart, &Items::sound, Situation::None, true},
    {"nothing written", hasWriter, startOnly},
    {"half written", hasWriter, feedHalf},
    {"no such file", isFile, failToStart, &Items::missing},
    {"no such device", suitsAll, failOnDevice, &Items::sound, Situation::NoDevice},
    {"no audio", suitsAll, failOnText, &Items::text},
    {"no data", suitsAll, failOnNothing, &Items::empty},
    {"card unplugged", suitsAll, loseCard, &Items::sound, Situation::VanishingCard},
};

} // namespace

// ---- Scenarios ---------------------------------------------------------------------------------

static std::vector<Scenario> makeScenarios()
{
    std::vector<Scenario> scenarios;
    for (std::size_t sixth = 0; sixth < allTeardowns.size(); ++sixth) {
        std::size_t next = sixth;
        for (const Source* source : Source::all()) {
            for (const Situation& situation : situations) {
                if (situation.suits(*source)) {
                    scenarios.push_back(
                        {source, &situation, allTeardowns[next % allTeardowns.size()]});
                    ++next;
                }
            }
        }
    }
    return scenarios;
}

const std::vector<Scenario>& Scenario::all()
{
    static const std::vector<Scenario> scenarios = makeScenarios();
    return scenarios;
}

QString Scenario::name() const
{
    return QStringLiteral("%1, %2, %3").arg(source->name, situation->name, nameOf(teardown));
}

QString Scenario::run(const Items& items, QRandomGenerator& random, const QString& cardName,
                      const std::function<void(const Playback&)>& atTeardown) const
{
    VirtualCard::Settings settings = Playback::impatientCard();
    if (situation->fault == Situation::VanishingCard) {
        settings.vanishAfter = random.bounded(4800);
    }
    const bool hasDevice = situation->fault != Situation::NoDevice;
    Playback playback(*source, items.*situation->item, teardown, cardName, settings,
                      hasDevice ? cardName : QStringLiteral("no_such_device"));
    if (!situation->reach(playback)) {
        return QStringLiteral("%1: the situation is not reached, the outcomes are \"%2\"")
            .arg(name(), playback.outcomes().join("\", \""));
    }
    if (atTeardown) {
        atTeardown(playback);
    }
    const QString problem = playback.tearDown();
    return problem.isEmpty() ? problem : name() + QLatin1String(": ") + problem;
}
