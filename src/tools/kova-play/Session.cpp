#include "Session.h"

#include "Check.h"
#include "Console.h"
#include "GstLog.h"
#include "Timing.h"

#include <QtCore/QCoreApplication>

namespace {

/// All items in the order in which they are played.
std::vector<std::unique_ptr<Item>> makeItems(const Options& options,
                                             const QByteArray& standardInput)
{
    std::vector<std::unique_ptr<Item>> items;
    for (const QString& name : options.items) {
        if (name == "-") {
            items.push_back(std::make_unique<DataItem>(standardInput));
        } else {
            items.push_back(std::make_unique<UriItem>(name));
        }
    }
    for (const QString& file : options.data) {
        items.push_back(std::make_unique<DataItem>(file));
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

QString makeToken(int index, const Item& item, const Options& options)
{
    if (options.token.isEmpty()) {
        return item.name();
    }
    if (options.itemCount() == 1) {
        return options.token;
    }
    return options.token + '-' + QString::number(index + 1);
}

QString outcomeLine(const QString& token, const Outcome& outcome)
{
    switch (outcome.kind) { // GCOVR_EXCL_BR_LINE: all have their case
    case Outcome::Kind::Ended:
        return "ended " + token;
    case Outcome::Kind::Stopped:
        return "stopped " + token;
    case Outcome::Kind::Error:
        break;
    }
    return "error " + token + ": " + outcome.reason;
}

} // namespace

Session::Session(const Options& options, const QByteArray& standardInput, Console& output,
                 const GstLog& log)
    : console(output), gstLog(log), verbosity(options.verbosity), showsTiming(options.timing),
      playlist({options.device, options.loop, options.atOnce}), liveLine(playlist, terminal, output)
{
    addItems(options, standardInput);
    connectPlaylist();
    connectUser();
}

void Session::addItems(const Options& options, const QByteArray& standardInput)
{
    int index = 0;
    for (std::unique_ptr<Item>& item : makeItems(options, standardInput)) {
        const QString token = makeToken(index, *item, options);
        playlist.add(std::move(item), token);
        ++index;
    }
}

void Session::connectPlaylist()
{
    connect(&playlist, &Playlist::noticed, this,
            [this](const QString& notice) { console.printMessage(notice); });
    connect(&playlist, &Playlist::outcomeKnown, this, &Session::reportOutcome);
    connect(&playlist, &Playlist::allFinished, this, [] { QCoreApplication::exit(); });
}

void Session::connectUser()
{
    connect(&terminal, &Terminal::keyTyped, this, &Session::onKey);
    connect(&unixSignals, &UnixSignals::stopRequested, &playlist, &Playlist::quit);
    connect(&unixSignals, &UnixSignals::suspendRequested, this, &Session::suspend);
    connect(&unixSignals, &UnixSignals::continued, this, &Session::redraw);
    connect(&unixSignals, &UnixSignals::terminalResized, this, &Session::redraw);
}

int Session::run()
{
    QMetaObject::invokeMethod(this, "begin", Qt::QueuedConnection);
    QCoreApplication::exec();
    liveLine.hide();
    terminal.leave();
    return exitStatus;
}

void Session::begin()
{
    if (!runsOnGLib()) {
        playlist.refuseAll("Qt does not run on GLib's event dispatcher", hintOnGLib());
        return;
    }
    liveLine.show();
    playlist.begin();
    liveLine.refresh();
}

void Session::reportOutcome(const QString& token, const Outcome& outcome)
{
    console.printResult(outcomeLine(token, outcome));
    if (outcome.kind == Outcome::Kind::Error) {
        exitStatus = 1;
    }
    const QString hint = hintOn(outcome);
    if (!hint.isEmpty()) {
        console.printMessage(hint);
    }
    if (showsTiming) {
        for (const QString& line : timing::ofItem(token, outcome.moments, gstLog.pluginLoads())) {
            console.printMessage(line);
        }
    }
}

/// What the user can do about an error that has no hint of its own, and has not done yet.
QString Session::hintOn(const Outcome& outcome) const
{
    if (outcome.kind != Outcome::Kind::Error || !outcome.hint.isEmpty()) {
        return outcome.hint;
    }
    switch (verbosity) {
    case 0:
        return "run again with -v, and see the log for details";
    case 1:
        return "run again with -vv, and see each step in the log";
    default:
        return "kova-play --check ITEM examines a file or a web address";
    }
}

void Session::onKey(char key)
{
    switch (key) {
    case ' ':
        playlist.togglePause();
        break;
    case 's':
        playlist.stopCurrent();
        break;
    case 'q':
        playlist.quit();
        break;
    default:
        break;
    }
    liveLine.refresh();
}

void Session::suspend()
{
    playlist.suspend();
    liveLine.hide();
    terminal.leave();
    unixSignals.suspendProcess();
    liveLine.show();
    playlist.resumeSuspended();
    liveLine.refresh();
}

void Session::redraw()
{
    // The last line no longer contains what was written there.
    console.forgetLiveLine();
    liveLine.refresh();
}
