#ifndef KOVA_PLAY_SESSION_H
#define KOVA_PLAY_SESSION_H

#include "CommandLine.h"
#include "LiveLine.h"
#include "Playlist.h"
#include "Terminal.h"
#include "UnixSignals.h"

#include <QtCore/QObject>

class Console;
class GstLog;

/// One run that plays: connects the playlist with the user, who types keys and sends signals, reads
/// the outcomes and watches the live line.
class Session : public QObject
{
    Q_OBJECT

public:
    /// @param given   how to play
    /// @param items   what to play
    /// @param output  must outlive this object
    /// @param log     knows the plug-ins that are loaded; must outlive this object
    Session(const Options& given, std::vector<std::unique_ptr<Item>> items, Console& output,
            const GstLog& log);

    /// Plays everything in the application's event loop.
    /// @return the exit status: 0 when every item ended or was stopped, 1 when one failed
    int run();

private:
    void addItems(std::vector<std::unique_ptr<Item>> items);
    void adviseOnLoop();
    void connectPlaylist();
    void connectUser();
    Q_INVOKABLE void begin();
    void reportOutcome(const QString& token, const Outcome& outcome);
    QString hintOn(const Outcome& outcome) const;
    void onKey(char key);
    void suspend();
    void redraw();

    const Options options;
    Console& console;
    const GstLog& gstLog;
    UnixSignals unixSignals;
    Terminal terminal;
    Playlist playlist;
    LiveLine liveLine;
    int exitStatus = 0;
};

#endif
