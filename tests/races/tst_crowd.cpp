#include "Chance.h"
#include "Life.h"

#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <vector>

/// Many players of all kinds that start and die at once, on several threads.
class TestCrowd : public QObject
{
    Q_OBJECT

public:
    TestCrowd() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void playersOfAllKindsComeAndGoInThreads();

private:
    std::unique_ptr<Item> item;
};

void TestCrowd::initTestCase()
{
    item = std::make_unique<Item>(4800);
}

namespace {

/// A life and its place.
struct Place
{
    Place(const Item& item, const QString& name, Source source, Death death)
        : stage(source, item, name), life(stage, death)
    {
    }

    const Stage stage;
    Life life;
};

/// What one thread does: some lives at once, again and again.
class Thread
{
public:
    Thread(const Item& itemToPlay, int numberOfThread)
        : item(itemToPlay), number(numberOfThread), chance(numberOfThread)
    {
    }

    void run(int crowds)
    {
        for (int i = 0; i < crowds && problems.isEmpty(); ++i) {
            liveAtOnce();
            if (i % 10 == 0) {
                note(playWhole(anySource(), item, nameOfCard(0)));
            }
        }
    }

    static constexpr int atOnce = 3;

    QStringList problems;

private:
    void liveAtOnce()
    {
        std::vector<std::unique_ptr<Place>> places;
        for (int i = 0; i < atOnce; ++i) {
            places.push_back(std::make_unique<Place>(item, nameOfCard(i), anySource(),
                                                     allDeaths[chance.below(6)]));
        }
        for (const auto& place : places) {
            place->life.start();
        }
        for (const auto& place : places) {
            place->life.reach(allMoments[chance.below(6)]);
            chance.linger(1000);
            note(place->life.die());
        }
    }

    void note(const QString& problem)
    {
        if (!problem.isEmpty()) {
            problems.append(problem);
        }
    }

    Source anySource() { return allSources[chance.below(3)]; }
    QString nameOfCard(int i) const { return QStringLiteral("card%1-%2").arg(number).arg(i); }

    const Item& item;
    const int number;
    Chance chance;
};

} // namespace

void TestCrowd::playersOfAllKindsComeAndGoInThreads()
{
    const VirtualCard first("first"); // made before other threads run
    const int threadCount = 4;
    const int crowds = rounds(40, 600);
    std::vector<std::unique_ptr<Thread>> crew;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < threadCount; ++i) {
        crew.push_back(std::make_unique<Thread>(*item, i));
        threads.emplace_back(
            QThread::create([&thread = *crew.back(), crowds] { thread.run(crowds); }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        thread->wait();
    }
    for (const auto& thread : crew) {
        QCOMPARE(thread->problems, QStringList());
    }
    QCOMPARE(leakedGstObjects(), QString());
}

KOVA_TEST(TestCrowd)
#include "tst_crowd.moc"
