#ifndef KOVA_PLAY_TERMINAL_H
#define KOVA_PLAY_TERMINAL_H

#include <QtCore/QObject>

class QSocketNotifier;

/// The terminal that the user sits at, when standard input is one: gives single keys without echo.
/// There is at most one object of this class.
///
/// The mode of the terminal is restored on destruction, at exit() and on signals that end the
/// process. While the process is in the background, another program owns the terminal, and it is
/// not changed.
class Terminal : public QObject
{
    Q_OBJECT

public:
    Terminal();
    ~Terminal() override;

    /// Whether there is a terminal. Nothing else here does anything without one.
    bool exists() const { return present; }
    /// Whether standard error goes to it, and it can show a line that is written over again and
    /// again.
    bool canShowLiveLine() const { return overwrites; }
    /// How many columns it has now.
    int columns() const;

    /// Begins to read keys if the process is in the foreground, and stops otherwise. Call it with a
    /// terminal only, and repeatedly, because a process is not notified when it moves to the
    /// background.
    /// @return whether this process owns the terminal now
    bool listen();
    /// Gives the terminal back, until listen() is called again.
    void leave();

    /// Gives the terminal its former mode, if it has another one now. Safe in signal handlers.
    static void restoreMode();

Q_SIGNALS:
    /// A key was typed. Keys that send more than one character are left out.
    void keyTyped(char key);

private:
    void readKeys();

    const bool present;
    const bool overwrites;
    bool listening = false;
    QSocketNotifier* notifier = nullptr;
};

#endif
