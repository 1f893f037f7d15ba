#include "Session.h"

#include "Check.h"
#include "Console.h"

#include <QtCore/QCoreApplication>

namespace {

std::unique_ptr<Item> makeItem(const QString& name, const Options& options)
{
    if (options.fake) {
        return std::make_unique<FakeItem>(UriItem(name).name());
    }
    return std::make_unique<UriItem>(name);
}

QString makeToken(int index, const Item& item, const Options& options)
{
    if (options.token.isEmpty()) {
        return item.name();
    }
    if (options.items.size() == 1) {
        return options.token;
    }
    return options.token + '-' + QString::number(index + 1);
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

Session::Session(const Options& options, Console& output)
    : console(output), playlist({options.device, options.loop, options.atOnce}),
      liveLine(playlist, terminal, output)
{
    addItems(options);
    connectPlaylist();
    connectUser();
}

void Session::addItems(const Options& options)
{
    for (int i = 0; i < options.items.size(); ++i) {
        std::unique_ptr<Item> item = makeItem(options.items.at(i), options);
        const QString token = makeToken(i, *item, options);
        playlist.add(std::move(item), token);
    }
}

void Session::connectPlaylist()
{
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
    if (!outcome.hint.isEmpty()) {
        console.printMessage(outcome.hint);
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
    // Whatever stands in the last line now, it is not what was written there.
    console.forgetLiveLine();
    liveLine.refresh();
}
