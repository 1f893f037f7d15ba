#ifndef KOVA_PLAY_LIVE_LINE_H
#define KOVA_PLAY_LIVE_LINE_H

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

#include <memory>

class Console;
class Flow;
class Playback;
class Playlist;
class Terminal;

/// The last line of the terminal, which shows what is being played, its state and for how long.
class LiveLine : public QObject
{
    Q_OBJECT

public:
    /// All of them must outlive this object.
    LiveLine(const Playlist& shownPlaylist, Terminal& userTerminal, Console& output);
    /// Shows from now on what really comes out. GStreamer must be initialised.
    void watchFlow();
    /// Removes the line.
    ~LiveLine() override;

    /// Shows the line from now on and keeps it up to date. Does nothing on a terminal that cannot
    /// show it.
    void show();
    /// Brings the line up to date at once, if it is shown.
    void refresh();
    /// Removes the line until show() is called again.
    void hide();

private:
    QString composed(int columns) const;
    QString progressOf(const Playback& playback) const;

    const Playlist& playlist;
    Terminal& terminal;
    Console& console;
    QTimer timer;
    std::unique_ptr<Flow> flow; ///< none when players play nothing
};

#endif
