// Runs the lifecycle scenarios in one process, one after another, and measures between the rounds
// what the process holds. The exit status is 0 if every outcome is correct and nothing grows.
//
//   soak [PLAYS]    makes at least so many players
//
// Prints a table of the measurements, separated by tabs, and everything else on stderr.

#include "Scenario.h"
#include "Usage.h"

#include "kit/Effort.h"
#include "kit/TestProcess.h"

#include <QtCore/QCoreApplication>

#include <cstdio>

/// Runs scenarios one after another. @return how many had a wrong outcome
static int runAll(std::size_t begin, std::size_t end, const Items& items, QRandomGenerator& random)
{
    int wrong = 0;
    for (std::size_t i = begin; i < end; ++i) {
        const QString problem = Scenario::all()[i].run(items, random);
        if (!problem.isEmpty()) {
            ++wrong;
            qWarning("WRONG  %s", qPrintable(problem));
        }
    }
    return wrong;
}

static void printRow(const Usage& usage)
{
    std::printf("%lld\t%lld\t%lld\t%lld\t%lld\t%lld\n", usage.plays, usage.descriptors,
                usage.threads, usage.objects, usage.heap, usage.resident);
    std::fflush(stdout);
}

/// @return how many quantities grew
static int judge(const std::vector<Usage>& run)
{
    int grown = 0;
    for (const Quantity& quantity : judgedQuantities) {
        const qint64 grew = growth(run, quantity);
        const qint64 tolerated =
            quantity.noise + qRound64(quantity.perPlay * double(run.back().plays) / 2);
        const bool flat = grew <= tolerated;
        grown += flat ? 0 : 1;
        qInfo("%s %s by %lld (up to %lld is tolerated)", flat ? "flat  " : "GROWN ", quantity.name,
              grew, tolerated);
    }
    return grown;
}

/// Twice all sixths of the scenarios: the quarters that are compared run the same ones.
constexpr std::size_t leastRounds = 12;

int main(int argc, char** argv)
{
    const TestProcess process;
    const QCoreApplication application(argc, argv);
    trackGstObjects();
    const qint64 plays = QCoreApplication::arguments()
                             .value(1, QString::number(repetitions(200, 2000)))
                             .toLongLong();
    const Items items;
    QRandomGenerator random = randomGenerator();
    int wrong = 0;
    std::vector<Usage> run;
    std::printf("plays\tdescriptors\tthreads\tobjects\theap\tresident\n");
    // A sixth of the scenarios has every situation of every source once.
    const std::size_t sixth = Scenario::all().size() / 6;
    for (qint64 done = 0; done < plays || run.size() < leastRounds;) {
        const std::size_t begin = run.size() % 6 * sixth;
        wrong += runAll(begin, begin + sixth, items, random);
        done += static_cast<qint64>(sixth);
        run.push_back(measureUsage(done));
        printRow(run.back());
    }
    return judge(run) + wrong == 0 ? 0 : 1;
}
