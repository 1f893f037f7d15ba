#include "Session.h"

#include "Check.h"
#include "Console.h"
#include "Devices.h"
#include "Elements.h"
#include "GstLog.h"
#include "Timing.h"

#include <QtCore/QCoreApplication>

namespace {

QString makeToken(std::size_t index, std::size_t count, const Item& item, const QString& token)
{
    if (token.isEmpty()) {
        return item.name();
    }
    return count == 1 ? token : token + '-' + QString::number(index + 1);
}

QString outcomeLine(const QString& token, const Outcome& outcome)
{
    switch (outcome.kind) {
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

Session::Session(const Options& given, std::vector<std::unique_ptr<Item>> items, Console& output,
                 const GstLog& log)
    : options(given), console(output), gstLog(log),
      playlist({given.device, given.loop, given.atOnce}), liveLine(playlist, terminal, output)
{
    addItems(std::move(items));
    connectPlaylist();
    connectUser();
}

void Session::addItems(std::vector<std::unique_ptr<Item>> items)
{
    for (std::size_t i = 0; i < items.size(); ++i) {
        const QString token = makeToken(i, items.size(), *items[i], options.token);
        playlist.add(std::move(items[i]), token);
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
    adviseOnLoop();
    if (!options.fake && elements::initialise().isEmpty()) {
        liveLine.watchFlow();
    }
    liveLine.show();
    playlist.begin();
    liveLine.refresh();
}

void Session::adviseOnLoop()
{
    const bool seeks = options.loop == Loop::SamePlayer && !options.items.isEmpty();
    if (seeks && !options.fake && devices::canPause(options.device)) {
        console.printMessage("this card can pause: each pass but the first begins with a fifth of "
                             "a second of silence in place of its sound; --loop=new plays it "
                             "whole");
    }
}

void Session::reportOutcome(const QString& token, const Outcome& outcome)
{
    liveLine.refresh(); // otherwise the item is shown once more below its outcome
    console.printResult(outcomeLine(token, outcome));
    if (outcome.kind == Outcome::Kind::Error) {
        exitStatus = 1;
    }
    const QString hint = hintOn(outcome);
    if (!hint.isEmpty()) {
        console.printMessage(hint);
    }
    if (options.timing) {
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
    switch (options.verbosity) {
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
