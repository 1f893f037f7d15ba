#include "sequences/Trial.h"

#include "kit/GstLeaks.h"
#include "kit/Media.h"
#include "kit/TestProcess.h"
#include "sequences/InertElements.h"
#include "sequences/Stage.h"
#ifdef HAVE_VIRTUAL_CARD
#include "kit/VirtualCard.h"
#endif

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <optional>
#include <random>

// ---- TrialWorld --------------------------------------------------------------------------------

/// What is alive before the first player is made, and so after each.
static QStringList objectsOfGStreamer;

class TrialWorld::Parts
{
public:
    Parts(int& argc, char** argv) : application(argc, argv) {}

    void makeInert();
    void makeReal();

private:
    TestProcess process;
    QCoreApplication application;
#ifdef HAVE_VIRTUAL_CARD
    std::optional<VirtualCard> card;
#endif
};

void TrialWorld::Parts::makeInert()
{
    // No plug-in is needed, and none is searched for.
    qputenv("GST_REGISTRY_DISABLE", "yes");
    qputenv("GST_PLUGIN_SYSTEM_PATH", "");
    qputenv("GST_PLUGIN_SYSTEM_PATH_1_0", "");
    trackGstObjects();
    inert::registerFactories();
    scenery.item = QByteArray(PlayerModel::arraySize, 'a');
    media::writeFile("item", scenery.item);
    // One life of every source, after which GStreamer has made what it keeps.
    for (const Source source : {Source::Uri, Source::Data, Source::Stream}) {
        Stage stage(source);
        stage.take(Step::Start);
    }
    objectsOfGStreamer = liveGstObjects();
}

#ifdef HAVE_VIRTUAL_CARD
static GLogFunc previousLogHandler = nullptr;

/// When a player is stopped while its decoder is still being put together, GStreamer starts an
/// appsrc once more on its way down, and complains about itself. It does no harm.
static void passOverSourceFormat(const gchar* domain, GLogLevelFlags level, const gchar* message,
                                 gpointer data)
{
    if (!message || !std::strstr(message, "gst_base_src_set_format: assertion")) {
        previousLogHandler(domain, level, message, data);
    }
}
#endif

void TrialWorld::Parts::makeReal()
{
#ifdef HAVE_VIRTUAL_CARD
    previousLogHandler = g_log_set_default_handler(passOverSourceFormat, nullptr);
    VirtualCard::Settings settings;
    settings.stallAfter = 4800;
    card.emplace("card", settings);
    trackGstObjects();
    scenery.realElements = true;
    scenery.device = card->device();
    scenery.item = media::wavBytes(media::tone(48000, 1, 96000));
    media::writeFile("item", scenery.item);
#else
    qFatal("there is no virtual sound card in this build");
#endif
}

TrialWorld::TrialWorld(int& argc, char** argv, bool realElements) : parts(new Parts(argc, argv))
{
    // A writer whose reader is gone is told so by write().
    std::signal(SIGPIPE, SIG_IGN);
    realElements ? parts->makeReal() : parts->makeInert();
}

TrialWorld::~TrialWorld() = default;

// ---- Comparison --------------------------------------------------------------------------------

namespace {

QString describe(const std::string& where, const Observation& is, const Observation& shouldBe)
{
    const QStringList real = is.text();
    const QStringList model = shouldBe.text();
    QString text =
        QStringLiteral("After \"%1\" the player differs from the model:\n").arg(where.c_str());
    for (int i = 0; i < std::max(real.size(), model.size()); ++i) {
        text += real.value(i) == model.value(i)
                    ? "              " + real.value(i) + '\n'
                    : "  is          " + real.value(i) + "\n  should be   " + model.value(i) + '\n';
    }
    return text;
}

/// One life on the stage, compared step by step.
class Life
{
public:
    explicit Life(Source source) : stage(new Stage(source)) {}

    bool beginsLike(const Observation& expected) { return compare("construct", expected); }

    bool take(char letter, const Observation& expected)
    {
        stage->take(Step(letter));
        return compare(inWords({letter}), expected);
    }

    /// Ends it as every life ends.
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
        const int outcomes = stage->outcomes();
        stage.reset();
        if (outcomes > 1) {
            difference = QStringLiteral("The event loop has brought %1 outcomes.\n").arg(outcomes);
            return;
        }
        if (scenery.realElements) {
            return; // GStreamer's threads drop their last references when they like
        }
        QStringList left = liveGstObjects();
        if (left != objectsOfGStreamer) {
            for (const QString& object : objectsOfGStreamer) {
                left.removeOne(object);
            }
            difference = "The player has left behind: " + left.join(' ') + '\n';
        }
    }

    QString difference;

private:
    bool compare(const std::string& where, const Observation& expected)
    {
        if (stage->seen == expected) {
            return true;
        }
        const Observation is = scenery.realElements ? stage->seen.atAnyPace() : stage->seen;
        const Observation shouldBe = scenery.realElements ? expected.atAnyPace() : expected;
        if (!(is == shouldBe)) {
            difference = describe(where, is, shouldBe);
        }
        return difference.isEmpty();
    }

    std::unique_ptr<Stage> stage;
};

} // namespace

QString differenceOf(Source source, const Sequence& sequence)
{
    PlayerModel model(source, Stage::itemPath(source));
    Life life(source);
    bool agrees = life.beginsLike(model.seen);
    for (std::size_t i = 0; agrees && i < sequence.size(); ++i) {
        if (model.possible(Step(sequence[i]))) {
            model.take(Step(sequence[i]));
            agrees = life.take(sequence[i], model.seen);
        }
    }
    if (agrees) {
        life.finish(model);
    }
    return life.difference;
}

// ---- All sequences -----------------------------------------------------------------------------

AllSequences::AllSequences(Source kind, const Sequence& letters,
                           std::function<void(const Sequence&)> observer)
    : source(kind), steps(letters), about(std::move(observer))
{
}

QString AllSequences::differenceOfLength(int length)
{
    tried = 0;
    sequence.clear();
    const PlayerModel model(source, Stage::itemPath(source));
    expected = {model.seen};
    return descend(model, length);
}

QString AllSequences::descend(const PlayerModel& model, int remaining)
{
    if (remaining == 0) {
        return tryOne(model);
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

QString AllSequences::tryOne(const PlayerModel& model)
{
    about(sequence);
    ++tried;
    Life life(source);
    bool agrees = life.beginsLike(expected.front());
    for (std::size_t i = 0; agrees && i < sequence.size(); ++i) {
        agrees = life.take(sequence[i], expected[i + 1]);
    }
    if (agrees) {
        life.finish(model);
    }
    return life.difference;
}

// ---- Random sequences and the shortest ---------------------------------------------------------

Sequence randomSequence(Source source, const Sequence& steps, int length, quint32 seed)
{
    std::mt19937 random(seed);
    PlayerModel model(source, Stage::itemPath(source));
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
