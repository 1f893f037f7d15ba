#include "Chance.h"
#include "Life.h"

#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtTest/QtTest>

#include <map>
#include <memory>

/// Players that are stopped and destroyed at every point of a playback.
class TestTeardown : public QObject
{
    Q_OBJECT

public:
    TestTeardown() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void anyDeathAtAnyMoment_data();
    void anyDeathAtAnyMoment();
    void deathInTheSlotOfAFailure_data();
    void deathInTheSlotOfAFailure();

private:
    std::unique_ptr<Item> item;
    Chance chance;
};

void TestTeardown::initTestCase()
{
    item = std::make_unique<Item>(4800);
}

void TestTeardown::anyDeathAtAnyMoment_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<Death>("death");
    for (const Source source : allSources) {
        for (const Death death : allDeaths) {
            QTest::addRow("%s, %s", nameOf(source), nameOf(death)) << source << death;
        }
    }
}

/// Tells at which moments lives came to their ends, which is not always where they were to.
static void tell(const std::map<Moment, int>& met)
{
    QStringList counts;
    for (const auto& [moment, count] : met) {
        counts.append(QStringLiteral("%1 %2").arg(count).arg(nameOf(moment)));
    }
    qInfo("%s", qPrintable(counts.join(", ")));
}

void TestTeardown::anyDeathAtAnyMoment()
{
    QFETCH(Source, source);
    QFETCH(Death, death);
    std::map<Moment, int> met;
    for (int round = 0; round < rounds(6, 100); ++round) {
        for (const Moment moment : allMoments) {
            const Stage stage(source, *item, "card");
            Life life(stage, death);
            life.start();
            life.reach(moment);
            chance.linger(1000);
            ++met[life.now()];
            QCOMPARE(life.die(), QString());
            QCOMPARE(leakedGstObjects(), QString());
        }
        if (round % 4 == 0) {
            QCOMPARE(playWhole(source, *item, "card"), QString());
        }
    }
    tell(met);
}

void TestTeardown::deathInTheSlotOfAFailure_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<Death>("death");
    for (const Source source : allSources) {
        for (const Death death : {Death::DeletedLaterInItsSlot, Death::DestroyedInItsSlot}) {
            QTest::addRow("%s, %s", nameOf(source), nameOf(death)) << source << death;
        }
    }
}

void TestTeardown::deathInTheSlotOfAFailure()
{
    QFETCH(Source, source);
    QFETCH(Death, death);
    int failures = 0;
    for (int round = 0; round < rounds(12, 200); ++round) {
        VirtualCard::Settings vanishing = Stage::impatient();
        vanishing.vanishAfter = chance.below(static_cast<int>(item->sound.frames()));
        const Stage stage(source, *item, "card", vanishing);
        const Life life(stage, death);
        life.start();
        QVERIFY(life.waitUntilDead());
        deliverQueuedEvents();
        const QStringList told = life.told();
        QCOMPARE(told.size(), 1);
        const bool isFailure = told.first().startsWith("error token: ");
        // The end comes first where the sink's thread is kept from the card for so long.
        QVERIFY2(isFailure || told.first() == "ended token", qPrintable(told.first()));
        failures += isFailure ? 1 : 0;
        QCOMPARE(leakedGstObjects(), QString());
    }
    QVERIFY(failures > 0);
    QCOMPARE(playWhole(source, *item, "card"), QString());
}

KOVA_TEST(TestTeardown)
#include "tst_teardown.moc"
