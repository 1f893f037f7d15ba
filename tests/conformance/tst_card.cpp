#include "conformance/Scenario.h"

#include "kit/Effort.h"

/// Sound cards that refuse, vanish or stall.
class TestCard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void refusalIsReported_data();
    void refusalIsReported() { runScenario(); }
    void unpluggedCardIsReported_data();
    void unpluggedCardIsReported() { runScenario(); }
    void playerOnStalledCardIsStopped_data();
    void playerOnStalledCardIsStopped() { runScenario(); }
    void playerOnStalledCardIsDestroyed_data();
    void playerOnStalledCardIsDestroyed() { runScenario(); }
};

void TestCard::refusalIsReported_data()
{
    using namespace step;
    const char* const noSettings = "error token: Could not get/set settings from/on resource.";
    addScenarios({
        {"open",
         Card::refusing("open"),
         {startFails},
         "error token: Could not open audio device for playback. Device is being used by another "
         "application.",
         nothing},
        {"format", Card::refusing("format"), {start}, noSettings, nothing},
        {"rate", Card::refusing("rate"), {start}, noSettings, nothing},
    });
}

void TestCard::unpluggedCardIsReported_data()
{
    using namespace step;
    const int period = 480;
    const char* const disconnected =
        "error token: Error outputting to audio device. The device has been disconnected.";
    const auto row = [=](const char* name, int frames) -> Scenario {
        return {name, Card::vanishingAfter(frames), {start}, disconnected, upToTheFault};
    };
    addScenarios({row("no frames", 0), row("1 frame", 1), row("one less than a period", period - 1),
                  row("one period", period), row("one more than a period", period + 1),
                  row("20 periods", 20 * period)});
}

/// Adds rows of cards that stall, below an item that is longer than all buffers and below one that
/// fits into the card's buffer.
static void addStallingCards(const std::vector<Step>& steps, const char* outcome)
{
    const auto row = [&](const char* name, int frames, int length) -> Scenario {
        return {name, Card::stallingAfter(frames), steps, outcome, step::upToTheFault, length};
    };
    const int longer = 48000;
    std::vector<Scenario> scenarios{row("1 frame", 1, longer), row("4800 frames", 4800, longer),
                                    row("item in the card's buffer", 480, 4800)};
    if (isLongRun()) {
        scenarios.push_back(row("no frames", 0, longer));
        scenarios.push_back(row("one period", 480, longer));
    }
    addScenarios(scenarios);
}

void TestCard::playerOnStalledCardIsStopped_data()
{
    using namespace step;
    addStallingCards({start, stalled, noOutcome, stop, cardIsClosed}, "stopped token");
}

void TestCard::playerOnStalledCardIsDestroyed_data()
{
    using namespace step;
    addStallingCards({start, stalled, noOutcome, destroy, cardIsClosed}, "");
}

KOVA_TEST(TestCard)
#include "tst_card.moc"
