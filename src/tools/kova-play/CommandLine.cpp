#include "CommandLine.h"

#include <QtCore/QCoreApplication>

#include <unistd.h>

namespace {

/// The parser knows no option whose value may be left out.
QStringList withPlainLoop(QStringList arguments)
{
    for (QString& argument : arguments) {
        if (argument == QLatin1String("--")) {
            break;
        }
        if (argument == QLatin1String("--loop=new")) {
            argument = "--loop-new";
        }
    }
    return arguments;
}

} // namespace

CommandLine::CommandLine()
    : deviceOption({"d", "device"}, "Play on the ALSA device NAME.", "NAME", "default"),
      tokenOption({"t", "token"},
                  "Call the item TOKEN in the output; of several items TOKEN-1, TOKEN-2 and so on. "
                  "Otherwise each has the last part of its name.",
                  "TOKEN"),
      dataOption("data",
                 "Read FILE into memory and play it from there, after the items; - is standard "
                 "input, up to 1 GiB.",
                 "FILE"),
      pipeOption("pipe",
                 "Play what another program writes into the named pipe PATH, which is made if it "
                 "is not there, after all else.",
                 "PATH"),
      capsOption("caps",
                 "What is written into the pipes or standard input, as GStreamer describes it.",
                 "CAPS"),
      loopOption({"l", "loop"},
                 "Begin each item again at its end, until it is stopped. --loop=new makes a new "
                 "player for each pass: every pass is whole on every card."),
      loopNewOption("loop-new"),
      atOnceOption("at-once", "Play all items at the same time. The device must be able to mix."),
      verboseOption(
          {"v", "verbose"},
          "Show the player's log and GStreamer's warnings on standard error. Given twice, show "
          "every step."),
      timingOption("timing", "Show on standard error how long each part of a start takes."),
      graphsOption("graphs",
                   "Write a picture of the pipeline to the folder DIR at each change of its state.",
                   "DIR"),
      listDevicesOption("list-devices", "List the ALSA devices that can play, and exit."),
      checkOption("check",
                  "Look for what is needed to play on the device, examine the items, and exit."),
      fakeOption("fake", "Play nothing: report each item as stopped, with --loop when it is."),
      helpOption({"h", "help"}, "Show this text, and exit."),
      versionOption("version", "Show the version, and exit.")
{
    parser.setApplicationDescription("Plays files and web addresses one after the other.\n\n"
                                     "On a terminal, space pauses and resumes, s stops the item "
                                     "and q quits.");
    parser.addPositionalArgument(
        "ITEM",
        "Path, file://PATH, http://... or https://... to play; a folder or a playlist (.m3u, "
        ".m3u8, .pls) for all that it holds; - for standard input.",
        "ITEM...");
    loopNewOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({deviceOption, tokenOption, dataOption, pipeOption, capsOption, loopOption,
                       loopNewOption, atOnceOption, verboseOption, timingOption, graphsOption,
                       listDevicesOption, checkOption, fakeOption, helpOption, versionOption});
}

QString CommandLine::help() const
{
    // The parser shows the program with the folder that it was called from.
    const QString program = QCoreApplication::arguments().constFirst();
    return parser.helpText().replace("Usage: " + program, "Usage: kova-play");
}

bool CommandLine::parse(const QStringList& arguments)
{
    if (!parser.parse(withPlainLoop(arguments))) {
        problem = parser.errorText();
        return false;
    }
    readOptions();
    readTask();
    problem = findProblem();
    return problem.isEmpty();
}

void CommandLine::readOptions()
{
    parsed.items = parser.positionalArguments();
    parsed.data = parser.values(dataOption);
    parsed.pipes = parser.values(pipeOption);
    parsed.caps = parser.value(capsOption);
    parsed.device = parser.value(deviceOption);
    parsed.token = parser.value(tokenOption);
    readLoop();
    parsed.atOnce = parser.isSet(atOnceOption);
    parsed.timing = parser.isSet(timingOption);
    parsed.fake = parser.isSet(fakeOption);
    parsed.graphsFolder = parser.value(graphsOption);
    const QStringList given = parser.optionNames();
    parsed.verbosity = given.count("v") + given.count("verbose");
}

void CommandLine::readLoop()
{
    if (parser.isSet(loopNewOption)) {
        parsed.loop = Loop::NewPlayer;
    } else if (parser.isSet(loopOption)) {
        parsed.loop = Loop::SamePlayer;
    }
}

void CommandLine::readTask()
{
    if (parser.isSet(helpOption)) {
        parsed.task = Options::Task::ShowHelp;
    } else if (parser.isSet(versionOption)) {
        parsed.task = Options::Task::ShowVersion;
    } else if (parser.isSet(checkOption)) {
        parsed.task = Options::Task::Check;
    } else if (parser.isSet(listDevicesOption)) {
        parsed.task = Options::Task::ListDevices;
    }
}

QString CommandLine::findProblem() const
{
    using Task = Options::Task;
    if (parsed.task == Task::ShowHelp || parsed.task == Task::ShowVersion) {
        return QString();
    }
    if (parser.isSet(checkOption) && parser.isSet(listDevicesOption)) {
        return "--check and --list-devices exclude each other.";
    }
    if (parsed.task == Task::ListDevices && !parsed.isEmpty()) {
        return "--list-devices takes no items.";
    }
    if (parsed.task == Task::Check &&
        (!parsed.data.isEmpty() || !parsed.pipes.isEmpty() || parsed.items.contains("-"))) {
        return "--check examines files and web addresses only.";
    }
    if (parsed.task == Task::Play && parsed.isEmpty()) {
        return "No item to play was named.";
    }
    if (parsed.inputCount() > 1) {
        return "Standard input can be played only once.";
    }
    if (parsed.inputCount() > 0 && isatty(STDIN_FILENO) == 1) {
        return "Standard input is a terminal: send a file or the output of a program to it.";
    }
    if (parser.isSet(capsOption) && parsed.pipes.isEmpty() && !parsed.items.contains("-")) {
        return "--caps says what is written into a pipe: it needs --pipe or the item -.";
    }
    for (const QCommandLineOption* option :
         {&deviceOption, &tokenOption, &graphsOption, &dataOption, &pipeOption, &capsOption}) {
        if (parser.isSet(*option) && parser.values(*option).contains(QString())) {
            return QString("--%1 needs a value that is not empty.").arg(option->names().last());
        }
    }
    return QString();
}
