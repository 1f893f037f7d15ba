#include "Check.h"
#include "CommandLine.h"
#include "Console.h"
#include "Devices.h"
#include "Graphs.h"
#include "LogOutput.h"
#include "Session.h"

#include <QtCore/QCoreApplication>

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

int play(const Options& options, Console& console)
{
    const LogOutput log(options.verbosity, console);
    if (options.graphsFolder.isEmpty()) {
        return Session(options, console).run();
    }
    Graphs graphs(options.graphsFolder);
    const QString problem = graphs.prepare();
    if (!problem.isEmpty()) {
        return complain(problem, console);
    }
    const int status = Session(options, console).run();
    graphs.finish(console);
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
        return runCheck(options.device, console) ? Success : Failure;
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
    if (!commandLine.parse(QCoreApplication::arguments())) {
        return complain(commandLine.error(), console);
    }
    const int status = perform(commandLine, console);
    if (!console.resultsWritten()) {
        console.printMessage("standard output could not be written");
        return Failure;
    }
    return status;
}
