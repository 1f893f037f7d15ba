#include "LiveLine.h"

#include "Console.h"
#include "Flow.h"
#include "Playlist.h"
#include "Terminal.h"
#include "Text.h"

namespace {

/// How often the line is looked at; it is written when it has changed only.
constexpr int refreshInterval = 200; // milliseconds

QString stateText(Playback::State state)
{
    switch (state) {
    case Playback::State::Playing:
    case Playback::State::Turning:
        return "playing";
    case Playback::State::Paused:
        return "paused";
    case Playback::State::Stopping:
        return "stopping";
    case Playback::State::Waiting:
    case Playback::State::Failing:
    case Playback::State::Finished:
        break;
    }
    return "failing";
}

/// A line of `columns` columns at most. The name gives way first, after the reminder of the keys.
QString joined(const QString& place, const QString& name, const QString& progress, int columns)
{
    const QString keys = "  (space: pause, s: stop, q: quit)";
    const QString whole = place + name + progress;
    if (text::columns(whole + keys) <= columns) {
        return whole + keys;
    }
    const int forName = columns - text::columns(place + progress);
    return text::fitted(place + text::fitted(name, qMax(forName, 0)) + progress, columns);
}

} // namespace

LiveLine::LiveLine(const Playlist& shownPlaylist, Terminal& userTerminal, Console& output)
    : playlist(shownPlaylist), terminal(userTerminal), console(output)
{
    timer.setInterval(refreshInterval);
    connect(&timer, &QTimer::timeout, this, &LiveLine::refresh);
}

LiveLine::~LiveLine()
{
    hide();
}

void LiveLine::watchFlow()
{
    flow = std::make_unique<Flow>();
}

void LiveLine::show()
{
    if (terminal.exists()) {
        timer.start();
        refresh();
    }
}

void LiveLine::refresh()
{
    if (!timer.isActive()) {
        return;
    }
    if (!terminal.listen()) {
        console.forgetLiveLine(); // in the background: another program uses the terminal
    } else if (terminal.canShowLiveLine()) {
        // The last column stays free: a full line would wrap on some terminals.
        console.setLiveLine(composed(terminal.columns() - 1));
    }
}

void LiveLine::hide()
{
    timer.stop();
    console.setLiveLine(QString());
}

QString LiveLine::composed(int columns) const
{
    const std::vector<const Playback*> current = playlist.current();
    if (current.empty()) {
        return QString();
    }
    const Playback& first = *current.front();
    if (current.size() > 1) {
        const QString progress = stateText(first.state()) + "  " + text::clock(first.elapsed());
        const QString place = QString("[%1 of %2] ").arg(current.size()).arg(playlist.size());
        return joined(place, first.name() + " and others", "  " + progress, columns);
    }
    const QString place = QString("[%1/%2] ").arg(playlist.begun()).arg(playlist.size());
    return joined(playlist.size() > 1 ? place : QString(), first.name(), "  " + progressOf(first),
                  columns);
}

QString LiveLine::progressOf(const Playback& playback) const
{
    if (!flow) {
        return stateText(playback.state()) + "  " + text::clock(playback.elapsed());
    }
    Flow::State state = Flow::State::Running;
    if (playback.state() == Playback::State::Playing) {
        state = flow->look();
    } else {
        flow->hold();
    }
    switch (state) {
    case Flow::State::NoData:
        return "waiting for data";
    case Flow::State::Stalled:
        return "card stalled";
    case Flow::State::Running:
        break;
    }
    const qint64 elapsed = qMax<qint64>(playback.elapsed() - flow->idle(), 0);
    return stateText(playback.state()) + "  " + text::clock(elapsed);
}
