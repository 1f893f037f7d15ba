// Every sequence of a client's calls and of events around a player, run with real players and
// compared with a model of them, step by step: results, states and signals.
//
//   tst_sequences [SOURCE] [--real] [--run WORD]
//     SOURCE      uri, data or stream; without it all three
//     --real      with GStreamer's real elements and a virtual sound card: only steps after which
//                 the state of the player is certain
//     --run WORD  one sequence, as a failure prints it
//
// With KOVA_LONG_TESTS=1 in the environment the sequences are longer, which takes half an hour of
// one core, most of it for the stream. KOVA_SEED chooses the random sequences.
//
// Players run in a process of their own, so that a crash is a failure like any other. A sequence
// that fails is shortened and printed as a command line that runs it alone.
#include "kit/Effort.h"
#include "kit/TestProcess.h"
#include "sequences/Comparison.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTextStream>

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int randomLength = 200;
constexpr unsigned oneSequenceSeconds = 300; // a sequence that takes so long hangs

/// How many sequences are run.
struct Extent
{
    int length;    ///< of all sequences of frequent steps
    int allLength; ///< of all sequences of steps of any kind
    int random;    ///< how many random sequences
};

Extent extent(bool realElements)
{
    if (realElements) {
        return isLongRun() ? Extent{4, 0, 30} : isSlowBuild() ? Extent{2, 0, 1} : Extent{3, 0, 3};
    }
    return isLongRun() ? Extent{6, 5, 10000} : isSlowBuild() ? Extent{3, 2, 20} : Extent{0, 4, 300};
}

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

/// The sequence that is running, in a file that outlives the process that runs it.
class CurrentSequence
{
public:
    explicit CurrentSequence(const QString& path) : file(path)
    {
        if (!file.open(QIODevice::ReadWrite) || !file.resize(size) ||
            !(memory = reinterpret_cast<char*>(file.map(0, size)))) {
            qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
        }
    }

    /// Sets the sequence that starts now. It is killed if it hangs.
    void set(const Sequence& sequence)
    {
        std::memcpy(memory, sequence.c_str(), sequence.size() + 1);
        ::alarm(oneSequenceSeconds);
    }
    Sequence get() const { return memory; }

private:
    static constexpr int size = 4096;
    QFile file;
    char* memory;
};

// ---- In the process that runs players ----------------------------------------------------------

/// Prints a difference, if there is one. @return whether there is none
bool agrees(const QString& difference)
{
    QTextStream(stderr) << difference;
    return difference.isEmpty();
}

bool runAllSequences(const Source& source, const Sequence& steps, int maximum,
                     CurrentSequence& current)
{
    AllSequences all(source, steps, [&](const Sequence& sequence) { current.set(sequence); });
    for (int length = 1; length <= maximum; ++length) {
        if (!agrees(all.differenceOfLength(length))) {
            return false;
        }
        out() << source.name << ": all " << all.count << " sequences of " << length << " out of "
              << steps.c_str() << Qt::endl;
    }
    return true;
}

bool runRandomSequences(const Source& source, const Sequence& steps, int count,
                        CurrentSequence& current)
{
    QRandomGenerator seeds = randomGenerator();
    for (int i = 0; i < count; ++i) {
        const Sequence sequence = randomSequence(source, steps, randomLength, seeds.generate());
        current.set(sequence);
        if (!agrees(differenceOf(source, sequence))) {
            return false;
        }
    }
    out() << source.name << ": " << count << " random sequences of " << randomLength << " out of "
          << steps.c_str() << Qt::endl;
    return true;
}

bool runPlayers(const Source& source, bool realElements, const QString& currentPath)
{
    CurrentSequence current(currentPath);
    const Extent many = extent(realElements);
    const Sequence all = realElements ? certainSteps(source) : allSteps(source);
    const Sequence frequent = realElements ? all : frequentSteps(source);
    return runAllSequences(source, frequent, many.length, current) &&
           runAllSequences(source, all, many.allLength, current) &&
           runRandomSequences(source, all, many.random, current);
}

// ---- In the process that was started -----------------------------------------------------------

/// Runs this program in another process. @return whether it succeeds
bool runSelf(const QStringList& arguments, bool quietly = false)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    if (quietly) {
        process.setProcessChannelMode(QProcess::SeparateChannels);
    }
    process.start(TestProcess::startable(QCoreApplication::applicationFilePath()), arguments);
    return process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

void printShortest(const QStringList& arguments, const Sequence& failed)
{
    const auto alone = [&arguments](const Sequence& sequence) {
        return arguments + QStringList{"--run", sequence.c_str()};
    };
    const auto fails = [&alone](const Sequence& sequence) {
        return !runSelf(alone(sequence), true);
    };
    QTextStream err(stderr);
    err << failed.c_str() << " fails\n";
    if (!fails(failed)) {
        err << "It passes alone: the failure depends on sequences before it.\n";
        return;
    }
    const Sequence shortest = shortened(failed, fails);
    runSelf(alone(shortest));
    err << "The shortest sequence that fails: " << inWords(shortest).c_str()
        << "\nAlone: tst_sequences " << alone(shortest).join(' ') << '\n';
}

bool supervise(const Source& source, bool realElements)
{
    QStringList arguments{source.name};
    if (realElements) {
        arguments << "--real";
    }
    const QString path = TestProcess::path(QStringLiteral("current-sequence"));
    const CurrentSequence current(path);
    const bool success = runSelf(arguments + QStringList{"--current", path});
    if (!success) {
        printShortest(arguments, current.get());
    }
    return success;
}

QVector<const Source*> sourcesNamed(const QString& name)
{
    QVector<const Source*> sources;
    for (const Source* source : Source::all()) {
        if (name.isEmpty() || name == source->name) {
            sources.append(source);
        }
    }
    return sources;
}

int superviseAll(const QVector<const Source*>& sources, bool realElements)
{
    bool success = !sources.isEmpty();
    for (const Source* source : sources) {
        success = supervise(*source, realElements) && success;
    }
    return success ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    const TestProcess process;
    const QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addPositionalArgument("source", "uri, data or stream.");
    options.addOption({"real", "With GStreamer's real elements."});
    options.addOption({"run", "One sequence.", "WORD"});
    options.addOption({"current", "In the process that runs players.", "FILE"});
    options.process(application);
    const bool real = options.isSet("real");
    const auto sources = sourcesNamed(options.positionalArguments().value(0));
    if (!options.isSet("run") && !options.isSet("current")) {
        return superviseAll(sources, real);
    }
    const Environment environment(real);
    ::alarm(oneSequenceSeconds);
    const bool success =
        options.isSet("run")
            ? agrees(differenceOf(*sources.first(), options.value("run").toStdString()))
            : runPlayers(*sources.first(), real, options.value("current"));
    return success ? EXIT_SUCCESS : EXIT_FAILURE;
}
