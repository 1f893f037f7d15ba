#ifndef KOVA_PLAY_UNIX_SIGNALS_H
#define KOVA_PLAY_UNIX_SIGNALS_H

#include <QtCore/QObject>

class QSocketNotifier;

/// Turns the signals of the operating system into Qt signals, emitted from the event loop. There
/// is at most one object of this class.
///
/// A second SIGINT ends the process at once, even when the event loop does not turn. Signals that
/// were ignored when the process began (nohup, background jobs of scripts) stay ignored.
class UnixSignals : public QObject
{
    Q_OBJECT

public:
    UnixSignals();
    ~UnixSignals() override;

    /// Suspends the process as SIGTSTP does, and returns when it is continued. The handling of
    /// SIGTSTP is out of the way meanwhile.
    void suspendProcess();

    /// Whether a SIGINT came that was handled. Also valid after the destruction of the object.
    static bool wasInterrupted();
    /// Ends the process by SIGINT, so that a shell also ends the loop or list that it runs.
    /// Only after the destruction of the object.
    [[noreturn]] static void dieOfInterrupt();

Q_SIGNALS:
    /// SIGINT, SIGTERM or SIGHUP came.
    void stopRequested();
    /// SIGTSTP came, and the process was not suspended.
    void suspendRequested();
    /// SIGCONT came, also after suspendProcess().
    void continued();
    /// SIGWINCH came.
    void terminalResized();

private:
    void readSignal();

    QSocketNotifier* notifier;
};

#endif
