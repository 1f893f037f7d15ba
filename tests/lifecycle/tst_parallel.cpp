#include "Scenario.h"

#include "kit/Effort.h"
#include "kit/GstLeaks.h"
#include "kit/TestMain.h"

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <vector>

/// Random scenarios on several threads at once, some of them overlapping on each thread.
class TestThreads : public QObject
{
    Q_OBJECT

public:
    TestThreads() { allowLongFunctions(); }

private Q_SLOTS:
    void playersOfAllKindsOnSeveralThreads();
};

namespace {

/// What one thread does.
class Worker
{
public:
    Worker(const Items& itemsToPlay, int numberOfThread)
        : items(itemsToPlay), number(numberOfThread), random(randomGenerator(numberOfThread))
    {
    }

    void run(int rounds)
    {
        for (int i = 0; i < rounds && problems.isEmpty(); ++i) {
            runNested(0);
            if (i % 10 == 0) {
                note(problemOfWholePlayback(*Source::all().at(random.bounded(Source::all().size())),
                                            items.sound, cardName(0)));
            }
        }
    }

    QStringList problems;

private:
    /// Runs a random scenario, and others while its player exists.
    void runNested(int depth)
    {
        const std::vector<Scenario>& all = Scenario::all();
        const Scenario& scenario = all[random.bounded(static_cast<quint32>(all.size()))];
        if (scenario.situation->reopensCard) {
            return;
        }
        note(scenario.run(items, random, cardName(depth), [this, depth](const Playback&) {
            if (depth < 2) {
                runNested(depth + 1);
            }
            letRandomTimePass(random, 1000);
        }));
    }

    void note(const QString& problem)
    {
        if (!problem.isEmpty()) {
            problems.append(problem);
        }
    }

    QString cardName(int i) const { return QStringLiteral("card%1-%2").arg(number).arg(i); }

    const Items& items;
    const int number;
    QRandomGenerator random;
};

} // namespace

void TestThreads::playersOfAllKindsOnSeveralThreads()
{
    const Items items;
    const VirtualCard first("first"); // made before other threads run
    const int threadCount = 4;
    const int rounds = repetitions(40, 600);
    std::vector<std::unique_ptr<Worker>> workers;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < threadCount; ++i) {
        workers.push_back(std::make_unique<Worker>(items, i));
        threads.emplace_back(
            QThread::create([&worker = *workers.back(), rounds] { worker.run(rounds); }));
        threads.back()->start();
    }
    for (const auto& thread : threads) {
        thread->wait();
    }
    for (const auto& worker : workers) {
        QCOMPARE(worker->problems.join('\n'), QString());
    }
    QCOMPARE(leakedGstObjects(), QString());
}

KOVA_TEST(TestThreads)
#include "tst_parallel.moc"
