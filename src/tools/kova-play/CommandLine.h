#ifndef KOVA_PLAY_COMMAND_LINE_H
#define KOVA_PLAY_COMMAND_LINE_H

#include "Playback.h"

#include <QtCore/QCommandLineOption>
#include <QtCore/QCommandLineParser>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// What the user asked for.
struct Options
{
    enum class Task
    {
        Play,
        ListDevices,
        Check,
        ShowHelp,
        ShowVersion,
    };

    Task task = Task::Play;
    QStringList items; ///< paths and URIs as the user wrote them; "-" is standard input
    QStringList data;  ///< files to play from memory; "-" is standard input
    QStringList pipes; ///< named pipes to play from
    QString caps;   ///< what is written into the pipes and standard input; empty: it is found out
    QString device; ///< ALSA name
    QString token;  ///< empty: each item's token comes from its name
    Loop loop = Loop::No;
    bool atOnce = false;  ///< play all items at the same time
    bool fake = false;    ///< play nothing
    bool timing = false;  ///< show how long each part of a start takes
    int verbosity = 0;    ///< how often --verbose was given
    QString graphsFolder; ///< where pictures of pipelines go; empty: none are made

    /// How often standard input is named.
    int inputCount() const { return items.count("-") + data.count("-"); }
    /// Whether nothing is named that could be played.
    bool isEmpty() const { return items.isEmpty() && data.isEmpty() && pipes.isEmpty(); }
};

/// The options that the program knows and the texts about them.
class CommandLine
{
public:
    CommandLine();

    /// @param arguments  all of them, the program's name first
    /// @return whether they are valid; otherwise error() is the reason
    bool parse(const QStringList& arguments);

    /// What was asked for. Valid after parse() returned true.
    const Options& options() const { return parsed; }
    /// What is wrong with the arguments, in one line. Valid after parse() returned false.
    const QString& error() const { return problem; }
    /// The text of --help.
    QString help() const;

private:
    void readOptions();
    void readLoop();
    void readTask();
    QString findProblem() const;

    QCommandLineParser parser;
    QCommandLineOption deviceOption;
    QCommandLineOption tokenOption;
    QCommandLineOption dataOption;
    QCommandLineOption pipeOption;
    QCommandLineOption capsOption;
    QCommandLineOption loopOption;
    QCommandLineOption loopNewOption;
    QCommandLineOption atOnceOption;
    QCommandLineOption verboseOption;
    QCommandLineOption timingOption;
    QCommandLineOption graphsOption;
    QCommandLineOption listDevicesOption;
    QCommandLineOption checkOption;
    QCommandLineOption fakeOption;
    QCommandLineOption helpOption;
    QCommandLineOption versionOption;
    Options parsed;
    QString problem;
};

#endif
