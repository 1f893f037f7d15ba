#ifndef KOVA_PLAY_TERMINAL_H
#define KOVA_PLAY_TERMINAL_H

#include <QtCore/QObject>

class QSocketNotifier;

/// The terminal that the user sits at, when standard input and standard error are one: gives single
/// keys without echo. There is at most one object of this class.
///
/// The terminal gets its mode back when this object dies, at exit() and on signals that kill. While
/// the process is in the background the terminal belongs to somebody else and is left alone.
class Terminal : public QObject
{
    Q_OBJECT

public:
    Terminal();
    ~Terminal() override;

    /// Whether there is a terminal. Nothing else here does anything without one.
    bool exists() const { return present; }
    /// Whether it can show a line that is written over again and again.
    bool canShowLiveLine() const { return overwrites; }
    /// How many columns it has now.
    int columns() const;

    /// To be called with a terminal only. Begins to listen to keys, if the process is in the
    /// foreground, and stops if it is not any more. To be called now and then: nobody tells when a
    /// process gets into the background.
    /// @return whether the terminal is ours now
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
