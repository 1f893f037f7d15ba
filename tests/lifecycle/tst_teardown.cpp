#include "Scenario.h"

#include "kit/Effort.h"
#include "kit/GstLeaks.h"
#include "kit/TestMain.h"

#include <QtTest/QtTest>

#include <map>
#include <memory>

/// Every scenario, each at slightly different times.
class TestTeardown : public QObject
{
    Q_OBJECT

public:
    TestTeardown() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void scenarios_data();
    void scenarios();

private:
    void repeat(const Scenario& scenario);
    void count(const Playback& playback);

    std::unique_ptr<Items> items;
    QRandomGenerator random = randomGenerator();
    std::map<QString, int> counts; ///< how many playbacks were torn down in which state
};

void TestTeardown::initTestCase()
{
    items = std::make_unique<Items>();
}

void TestTeardown::scenarios_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<Teardown>("teardown");
    for (const Source* source : Source::all()) {
        for (const Teardown teardown : allTeardowns) {
            QTest::addRow("%s, %s", source->name, nameOf(teardown)) << source << teardown;
        }
    }
}

void TestTeardown::count(const Playback& playback)
{
    static const char* const names[] = {"started",       "prerolling",        "at the first frame",
                                        "in the middle", "in the last 50 ms", "ended"};
    const QString outcome = playback.outcomes().join(QString());
    ++counts[outcome.startsWith(QLatin1String("error"))
                 ? QStringLiteral("failed")
                 : QString(names[static_cast<std::size_t>(playback.progress())])];
}

void TestTeardown::repeat(const Scenario& scenario)
{
    for (int i = 0; i < repetitions(4, 100); ++i) {
        const QString problem =
            scenario.run(*items, random, QStringLiteral("card"), [this](const Playback& playback) {
                letRandomTimePass(random, 1000);
                count(playback);
            });
        QCOMPARE(problem, QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
}

void TestTeardown::scenarios()
{
    QFETCH(const Source*, source);
    QFETCH(Teardown, teardown);
    counts.clear();
    for (const Scenario& scenario : Scenario::all()) {
        if (scenario.source == source && scenario.teardown == teardown) {
            repeat(scenario);
            if (QTest::currentTestFailed()) {
                return;
            }
        }
    }
    for (const auto& [state, number] : counts) {
        qInfo("%d %s", number, qPrintable(state));
    }
    QVERIFY(counts[QStringLiteral("failed")] > 0);
    QCOMPARE(problemOfWholePlayback(*source, items->sound), QString());
}

KOVA_TEST(TestTeardown)
#include "tst_teardown.moc"
