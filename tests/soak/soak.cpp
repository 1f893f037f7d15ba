// Lets many players live and die in one process, one after another, each life a different way, and
// looks between the rounds at what the process holds. The exit status is 0 when every outcome was
// the right one and nothing grew.
//
//   soak [--plays N] [--only TEXT] [--report FILE]

#include "Lives.h"
#include "Usage.h"

#include "kit/PlayerProbe.h"
#include "kit/TestProcess.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTextStream>

static QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

/// Lives all lives once. @return how many had a wrong outcome
static int liveAll(const std::vector<Life>& lives)
{
    int wrong = 0;
    for (const Life& life : lives) {
        const QStringList outcomes = life.live();
        if (outcomes != life.outcomes) {
            ++wrong;
            out() << "WRONG  " << life.name << ": \"" << outcomes.join("\", \"")
                  << "\" instead of \"" << life.outcomes.join("\", \"") << "\"\n";
        }
    }
    return wrong;
}

static std::vector<Life> livesNamed(const QString& text)
{
    std::vector<Life> lives;
    for (const Life& life : allLives()) {
        if (life.name.contains(text)) {
            lives.push_back(life);
        }
    }
    return lives;
}

static QString row(const Usage& usage)
{
    return QStringLiteral("%1\t%2\t%3\t%4\t%5\t%6\n")
        .arg(usage.plays)
        .arg(usage.descriptors)
        .arg(usage.threads)
        .arg(usage.objects)
        .arg(usage.heap)
        .arg(usage.resident);
}

static const char* const heading = "plays\tdescriptors\tthreads\tobjects\theap\tresident\n";

static bool writeReport(const QString& path, const std::vector<Usage>& run)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        out() << "soak: " << path << ": " << file.errorString() << '\n';
        return false;
    }
    file.write(heading);
    for (const Usage& usage : run) {
        file.write(row(usage).toLatin1());
    }
    return true;
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
        out() << (flat ? "flat   " : "GROWN  ") << quantity.name << " by " << grew << " (up to "
              << tolerated << " is tolerated)\n";
    }
    return grown;
}

/// Fewer cannot be judged: a quarter of them is two.
constexpr std::size_t leastRounds = 8;

int main(int argc, char** argv)
{
    TestProcess process;
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addHelpOption();
    options.addOption({"plays", "How many players live, at least.", "N", "2000"});
    options.addOption({"only", "Only the lives whose names contain it.", "TEXT"});
    options.addOption({"report", "A table of what the process held, separated by tabs.", "FILE"});
    options.process(application);
    const qint64 plays = options.value("plays").toLongLong();

    trackGstObjects();
    const std::vector<Life> lives = livesNamed(options.value("only"));
    if (lives.empty()) {
        out() << "soak: there is no such life\n" << Qt::flush;
        return 2;
    }
    int wrong = 0;
    std::vector<Usage> run;
    out() << heading;
    for (qint64 lived = 0; lived < plays || run.size() < leastRounds;) {
        wrong += liveAll(lives);
        lived += static_cast<qint64>(lives.size());
        run.push_back(measureUsage(lived));
        out() << row(run.back()) << Qt::flush;
    }
    if (options.isSet("report") && !writeReport(options.value("report"), run)) {
        return 2;
    }
    return judge(run) + wrong == 0 ? 0 : 1;
}
