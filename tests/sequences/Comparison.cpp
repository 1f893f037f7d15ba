#include "sequences/Comparison.h"

#include "kit/GstLeaks.h"
#include "sequences/InertElements.h"
#include "sequences/PlayerFixture.h"
#ifdef HAVE_VIRTUAL_CARD
#include "kit/VirtualCard.h"
#else
class VirtualCard
{
};
#endif

#include <algorithm>
#include <random>

// ---- Environment --------------------------------------------------------------------------------

/// The live objects before the first player is made, and after each.
static QStringList remainingObjects;

void Environment::makeInert()
{
    // No plug-in is needed, and none is searched for.
    qputenv("GST_REGISTRY_DISABLE", "yes");
    qputenv("GST_PLUGIN_SYSTEM_PATH", "");
    qputenv("GST_PLUGIN_SYSTEM_PATH_1_0", "");
    trackGstObjects();
    inert::registerFactories();
    playerSettings.item.emplace(QByteArray(PlayerModel::arraySize, 'a'));
    // GStreamer makes what it keeps for the first player of each source.
    for (const Source* source : Source::all()) {
        PlayerFixture(*source).take(Step::Start);
    }
    remainingObjects = liveGstObjects();
}

void Environment::makeReal()
{
#ifdef HAVE_VIRTUAL_CARD
    card = std::make_unique<VirtualCard>("card", VirtualCard::Settings::stalled());
    trackGstObjects();
    playerSettings.realElements = true;
    playerSettings.device = card->device();
    playerSettings.item.emplace(media::tone(48000, 1, 96000));
#else
    qFatal("there is no virtual sound card in this build");
#endif
}

Environment::Environment(bool realElements)
{
    realElements ? makeReal() : makeInert();
}

Environment::~Environment() = default;

// ---- Comparison --------------------------------------------------------------------------------

namespace {

QString describe(const Sequence& last, const Observation& actual, const Observation& expected)
{
    const QStringList real = actual.text();
    const QStringList model = expected.text();
    QString text = QStringLiteral("After \"%1\" the player differs from the model:\n")
                       .arg(last.empty() ? "construct" : inWords(last).c_str());
    for (int i = 0; i < std::max(real.size(), model.size()); ++i) {
        text += real.value(i) == model.value(i)
                    ? "              " + real.value(i) + '\n'
                    : "  actual      " + real.value(i) + "\n  expected    " + model.value(i) + '\n';
    }
    return text;
}

/// A player that is compared with the model step by step.
class ComparedPlayer
{
public:
    explicit ComparedPlayer(const Source& source) : player(new PlayerFixture(source)) {}

    bool beginsLike(const Observation& expected) { return compare({}, expected); }

    bool take(char letter, const Observation& expected)
    {
        player->take(Step(letter));
        return compare({letter}, expected);
    }

    /// Runs the event loop, destroys the player and looks for what it leaves behind.
    void finish(PlayerModel model)
    {
        for (const Step step : {Step::RunLoop, Step::Destroy}) {
            if (model.seen.alive) {
                model.take(step);
                if (!take(char(step), model.seen)) {
                    return;
                }
            }
        }
        const int outcomes = player->outcomes();
        player.reset();
        if (outcomes > 1) {
            difference =
                QStringLiteral("The event loop has delivered %1 outcomes.\n").arg(outcomes);
        } else if (!playerSettings.realElements) { // whose threads drop references at any time
            findRemains();
        }
    }

    QString difference;

private:
    /// @param last  the last step, none after the construction
    bool compare(const Sequence& last, const Observation& model)
    {
        const bool real = playerSettings.realElements;
        if (player->seen == model ||
            (real && player->seen.withoutStreaming() == model.withoutStreaming())) {
            return true;
        }
        difference = describe(last, player->seen, model);
        return false;
    }

    void findRemains()
    {
        QStringList remains = liveGstObjects();
        if (remains != remainingObjects) {
            for (const QString& object : remainingObjects) {
                remains.removeOne(object);
            }
            difference = "The player has left behind: " + remains.join(' ') + '\n';
        }
    }

    std::unique_ptr<PlayerFixture> player;
};

} // namespace

QString differenceOf(const Source& source, const Sequence& sequence)
{
    PlayerModel model(source);
    ComparedPlayer player(source);
    bool agrees = player.beginsLike(model.seen);
    for (std::size_t i = 0; agrees && i < sequence.size(); ++i) {
        if (model.possible(Step(sequence[i]))) {
            model.take(Step(sequence[i]));
            agrees = player.take(sequence[i], model.seen);
        }
    }
    if (agrees) {
        player.finish(model);
    }
    return player.difference;
}

// ---- All sequences -----------------------------------------------------------------------------

AllSequences::AllSequences(const Source& kind, const Sequence& letters,
                           std::function<void(const Sequence&)> observer)
    : source(kind), steps(letters), about(std::move(observer))
{
}

QString AllSequences::differenceOfLength(int length)
{
    count = 0;
    sequence.clear();
    const PlayerModel model(source);
    expected = {model.seen};
    return descend(model, length);
}

QString AllSequences::descend(const PlayerModel& model, int remaining)
{
    if (remaining == 0) {
        return runOne(model);
    }
    QString difference;
    for (const char letter : steps) {
        const bool last = remaining == 1;
        if (!model.possible(Step(letter)) || (Step(letter) == Step::Destroy && !last)) {
            continue;
        }
        PlayerModel next = model;
        next.take(Step(letter));
        sequence.push_back(letter);
        expected.push_back(next.seen);
        difference = descend(next, remaining - 1);
        if (!difference.isEmpty()) {
            break;
        }
        sequence.pop_back();
        expected.pop_back();
    }
    return difference;
}

QString AllSequences::runOne(const PlayerModel& model)
{
    about(sequence);
    ++count;
    ComparedPlayer player(source);
    bool agrees = player.beginsLike(expected.front());
    for (std::size_t i = 0; agrees && i < sequence.size(); ++i) {
        agrees = player.take(sequence[i], expected[i + 1]);
    }
    if (agrees) {
        player.finish(model);
    }
    return player.difference;
}

// ---- Random sequences and the shortest ---------------------------------------------------------

Sequence randomSequence(const Source& source, const Sequence& steps, int length, quint32 seed)
{
    std::mt19937 random(seed);
    PlayerModel model(source);
    Sequence sequence;
    while (int(sequence.size()) < length) {
        const char letter = steps[random() % steps.size()];
        if (Step(letter) != Step::Destroy && model.possible(Step(letter))) {
            model.take(Step(letter));
            sequence.push_back(letter);
        }
    }
    return sequence;
}

Sequence shortened(Sequence sequence, const std::function<bool(const Sequence&)>& fails)
{
    // Pieces of half its length first, single steps last.
    for (std::size_t piece = sequence.size(); piece > 0; piece /= 2) {
        for (std::size_t at = 0; at < sequence.size();) {
            Sequence without = sequence;
            without.erase(at, piece);
            if (fails(without)) {
                sequence = without;
            } else {
                at += piece;
            }
        }
    }
    return sequence;
}
