#include "Terminal.h"

#include <QtCore/QSocketNotifier>

#include <array>
#include <csignal>
#include <cstdlib>

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace {

/// Signals that kill and leave no time for an event loop.
constexpr std::array deadlySignals = {SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGPIPE};

// Read by signal handlers. The mode is written while `modeChanged` is 0 only.
termios formerMode = {};
volatile std::sig_atomic_t modeChanged = 0;
std::array<struct sigaction, deadlySignals.size()> formerActions;

bool inForeground()
{
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

/// Restores the mode and ends the process with the signal's previous action.
extern "C" void restoreModeAndDie(int number)
{
    Terminal::restoreMode();
    for (std::size_t i = 0; i < deadlySignals.size(); ++i) {
        if (deadlySignals[i] == number) {
            sigaction(number, &formerActions[i], nullptr);
        }
    }
    raise(number); // NOLINT(cert-err33-c): takes effect when the handler returns
}

void restoreModeWhenKilled()
{
    struct sigaction action = {};
    action.sa_handler = restoreModeAndDie;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < deadlySignals.size(); ++i) {
        sigaction(deadlySignals[i], nullptr, &formerActions[i]);
        if (formerActions[i].sa_handler != SIG_IGN) {
            sigaction(deadlySignals[i], &action, nullptr);
        }
    }
}

/// Characters come one by one and are not shown; ^C and ^Z still send their signals.
bool setKeyMode()
{
    if (tcgetattr(STDIN_FILENO, &formerMode) != 0) {
        return false; // it has gone since it was found in the foreground
    }
    termios keyMode = formerMode;
    keyMode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    keyMode.c_cc[VMIN] = 1;
    keyMode.c_cc[VTIME] = 0;
    modeChanged = 1;
    return tcsetattr(STDIN_FILENO, TCSANOW, &keyMode) == 0;
}

/// How many bytes the key at `begin` has sent: more than one begin with the escape character, as in
/// ESC s (Alt and s), ESC O P (F1) and ESC [ 1 5 ~ (F5).
int keyLength(const QByteArray& typed, int begin)
{
    if (typed.at(begin) != '\033') {
        return 1;
    }
    int end = begin + 1;
    if (end < typed.size() && (typed.at(end) == '[' || typed.at(end) == 'O')) {
        ++end;
        while (end < typed.size() && typed.at(end) < '@') {
            ++end; // parameters
        }
    }
    return qMin(end + 1, typed.size()) - begin;
}

bool isCapable()
{
    const QByteArray type = qgetenv("TERM");
    return !type.isEmpty() && type != "dumb";
}

/// Whether another program reads the results. It may write on this terminal, at any moment.
bool resultsGoToAProgram()
{
    struct stat status = {};
    return fstat(STDOUT_FILENO, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

} // namespace

Terminal::Terminal()
    : present(isatty(STDIN_FILENO) == 1),
      overwrites(present && isatty(STDERR_FILENO) == 1 && isCapable() && !resultsGoToAProgram())
{
    if (!present) {
        return;
    }
    restoreModeWhenKilled();
    // GStreamer calls exit() when it cannot be initialised.
    (void)std::atexit(restoreMode);
    notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    notifier->setEnabled(false);
    connect(notifier, &QSocketNotifier::activated, this, &Terminal::readKeys);
}

Terminal::~Terminal()
{
    leave();
}

int Terminal::columns() const
{
    winsize size = {};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

bool Terminal::listen()
{
    const bool ours = inForeground();
    if (ours && !listening) {
        listening = setKeyMode();
        notifier->setEnabled(listening);
    } else if (!ours && listening) {
        // The shell has taken the terminal and set its own mode.
        modeChanged = 0;
        listening = false;
        notifier->setEnabled(false);
    }
    return ours;
}

void Terminal::leave()
{
    if (listening) {
        notifier->setEnabled(false);
        listening = false;
        restoreMode();
    }
}

void Terminal::restoreMode()
{
    // From the background, setting the mode would stop the process.
    if (modeChanged != 0 && inForeground()) {
        tcsetattr(STDIN_FILENO, TCSANOW, &formerMode);
    }
    modeChanged = 0;
}

void Terminal::readKeys()
{
    if (!listen()) {
        // The terminal was taken or lost between the key and this call. Reading in the background
        // would stop the process.
        return;
    }
    QByteArray typed(64, 0);
    const ssize_t count = read(STDIN_FILENO, typed.data(), static_cast<std::size_t>(typed.size()));
    if (count <= 0) {
        // The terminal was lost since listen() has looked.
        notifier->setEnabled(false);
        return;
    }
    typed.truncate(static_cast<int>(count));
    for (int i = 0; i < typed.size();) {
        const int length = keyLength(typed, i);
        if (length == 1) {
            Q_EMIT keyTyped(typed.at(i));
        }
        i += length;
    }
}
