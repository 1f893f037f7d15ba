#include "Caps.h"
#include "Check.h"
#include "CommandLine.h"
#include "Console.h"
#include "Devices.h"
#include "Elements.h"
#include "Expansion.h"
#include "Graphs.h"
#include "GstLog.h"
#include "LogOutput.h"
#include "Session.h"
#include "Timing.h"
#include "Tracing.h"
#include "UnixSignals.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <iterator>

#include <fcntl.h>
#include <unistd.h>

namespace {

enum ExitStatus
{
    Success = 0,
    Failure = 1,
    UsageError = 2,
};

int complain(const QString& problem, Console& console)
{
    console.printMessage(problem);
    console.printMessage("Try 'kova-play --help'.");
    return UsageError;
}

int listDevices(Console& console)
{
    for (const devices::Device& device : devices::list()) {
        console.printResult(device.name);
        for (const QString& line : device.description.split('\n', Qt::SkipEmptyParts)) {
            console.printResult("    " + line);
        }
    }
    return Success;
}

constexpr qint64 largestInput = qint64(1) << 30;

/// The item of a file that is played from memory. Standard input is read now, before the session
/// catches signals, so that ^C ends a program that still waits for its input.
std::unique_ptr<Item> makeDataItem(const QString& file)
{
    if (file == "-") {
        return std::make_unique<DataItem>(
            files::readAll(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0), largestInput));
    }
    return std::make_unique<DataItem>(file);
}

std::unique_ptr<Item> makeItem(const expansion::Entry& entry, const QString& caps)
{
    if (!entry.problem.reason.isEmpty()) {
        return std::make_unique<UnplayableItem>(entry.name, entry.problem);
    }
    if (entry.name == "-") {
        return std::make_unique<StandardInputItem>(caps);
    }
    return std::make_unique<UriItem>(entry.name);
}

/// All items in the order in which they are played.
std::vector<std::unique_ptr<Item>> makeItems(const Options& options)
{
    std::vector<std::unique_ptr<Item>> items;
    for (const expansion::Entry& entry : expansion::expanded(options.items)) {
        items.push_back(makeItem(entry, options.caps));
    }
    for (const QString& file : options.data) {
        items.push_back(makeDataItem(file));
    }
    for (const QString& path : options.pipes) {
        items.push_back(std::make_unique<PipeItem>(path, options.caps));
    }
    if (options.fake) {
        for (std::unique_ptr<Item>& item : items) {
            item = std::make_unique<FakeItem>(item->name());
        }
    }
    return items;
}

/// Initialises GStreamer and has what the players do with it observed.
/// @return why that failed; empty when it did not
QString initialise(const Options& options, const GstLog& log, Console& console)
{
    const auto begin = timing::Clock::now();
    QString problem = elements::initialise();
    const auto end = timing::Clock::now();
    if (options.timing) {
        for (const QString& line : timing::ofProcess(begin, end, log.registry())) {
            console.printMessage(line);
        }
    }
    if (problem.isEmpty()) {
        Tracing::begin(options.verbosity > 0 ? &console : nullptr, options.timing);
    }
    return problem;
}

int play(const Options& options, Console& console)
{
    const LogOutput log(options.verbosity, console);
    Graphs graphs(options.graphsFolder);
    QString problem = options.graphsFolder.isEmpty() ? QString() : graphs.prepare();
    if (!problem.isEmpty()) {
        return complain(problem, console);
    }
    const GstLog gstLog(options.verbosity > 0, options.timing, console);
    problem = initialise(options, gstLog, console);
    if (!problem.isEmpty()) {
        console.printMessage("GStreamer cannot be initialised: " + problem);
        return Failure;
    }
    problem = options.caps.isEmpty() ? QString() : caps::problemWith(options.caps);
    if (!problem.isEmpty()) {
        return complain(problem, console);
    }
    const int status = Session(options, makeItems(options), console, gstLog).run();
    if (!options.graphsFolder.isEmpty()) {
        graphs.finish(console);
    }
    return status;
}

int perform(const CommandLine& commandLine, Console& console)
{
    const Options& options = commandLine.options();
    switch (options.task) {
    case Options::Task::ShowHelp:
        console.printText(commandLine.help());
        return Success;
    case Options::Task::ShowVersion:
        console.printResult("kova-play " + QCoreApplication::applicationVersion());
        return Success;
    case Options::Task::ListDevices:
        return listDevices(console);
    case Options::Task::Check:
        return runCheck(options.device, options.items, console) ? Success : Failure;
    case Options::Task::Play:
        break;
    }
    return play(options, console);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("kova-play");
    QCoreApplication::setApplicationVersion(KOVA_PLAY_VERSION);

    Console console;
    CommandLine commandLine;
    QStringList arguments;
    std::transform(argv, argv + argc, std::back_inserter(arguments), files::decoded);
    if (!commandLine.parse(arguments)) {
        return complain(commandLine.error(), console);
    }
    const int status = perform(commandLine, console);
    const bool written = console.resultsWritten();
    if (!written) {
        console.printMessage("standard output could not be written");
    }
    if (UnixSignals::wasInterrupted()) {
        UnixSignals::dieOfInterrupt();
    }
    return written ? status : Failure;
}
