#include "UnixSignals.h"

#include "Terminal.h"

#include <QtCore/QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::array handledSignals = {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT, SIGWINCH};

/// Some senders send a signal to the process and then to its group; that counts once.
constexpr long sameInterrupt = 100; // milliseconds

std::array<int, 2> pipeEnds = {-1, -1}; // written before the handlers are installed
long firstInterrupt = -1;               // in milliseconds; touched by the handler of SIGINT alone
volatile std::sig_atomic_t interrupted = 0;
struct sigaction suspendAction = {}; // how SIGTSTP is handled

long now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000L + time.tv_nsec / 1000000L;
}

/// In a signal handler: ends the process after a repeated SIGINT, with the terminal restored.
void dieOfSecondInterrupt()
{
    if (firstInterrupt < 0) {
        firstInterrupt = now();
    } else if (now() - firstInterrupt > sameInterrupt) {
        Terminal::restoreMode();
        signal(SIGINT, SIG_DFL); // NOLINT(cert-err33-c): takes effect when the handler returns
        raise(SIGINT);           // NOLINT(cert-err33-c)
    }
}

extern "C" void writeSignal(int number)
{
    const int savedErrno = errno;
    if (number == SIGINT) {
        interrupted = 1;
        dieOfSecondInterrupt();
    }
    const char byte = static_cast<char>(number);
    // A full pipe means that the event loop has enough to do already.
    [[maybe_unused]] const ssize_t written = write(pipeEnds[1], &byte, 1);
    errno = savedErrno;
}

void handle(int number, const struct sigaction& action)
{
    struct sigaction former = {};
    sigaction(number, nullptr, &former);
    if (former.sa_handler != SIG_IGN) {
        sigaction(number, &action, nullptr);
    }
}

} // namespace

UnixSignals::UnixSignals()
{
    if (pipe2(pipeEnds.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        qFatal("kova-play: no pipe for signals: %s", qPrintable(qt_error_string(errno)));
    }
    notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &UnixSignals::readSignal);

    suspendAction.sa_handler = writeSignal;
    suspendAction.sa_flags = SA_RESTART;
    sigemptyset(&suspendAction.sa_mask);
    for (const int number : handledSignals) {
        handle(number, suspendAction);
    }
}

UnixSignals::~UnixSignals()
{
    for (const int number : handledSignals) {
        // No handler for further signals: the process is about to end.
        signal(number, SIG_DFL); // NOLINT(cert-err33-c)
    }
    notifier->setEnabled(false);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

void UnixSignals::suspendProcess()
{
    signal(SIGTSTP, SIG_DFL); // NOLINT(cert-err33-c)
    // Returns when the process is continued, or at once if no other process could continue it.
    raise(SIGTSTP); // NOLINT(cert-err33-c)
    sigaction(SIGTSTP, &suspendAction, nullptr);
}

bool UnixSignals::wasInterrupted()
{
    return interrupted != 0;
}

void UnixSignals::dieOfInterrupt()
{
    raise(SIGINT);            // NOLINT(cert-err33-c): the handling is the default one again
    std::_Exit(128 + SIGINT); // SIGINT is blocked
}

void UnixSignals::readSignal()
{
    char number = 0;
    if (read(pipeEnds[0], &number, 1) != 1) {
        return; // not reached: the byte is there, because no other thread reads
    }
    switch (number) {
    case SIGTSTP:
        Q_EMIT suspendRequested();
        break;
    case SIGCONT:
        Q_EMIT continued();
        break;
    case SIGWINCH:
        Q_EMIT terminalResized();
        break;
    default:
        Q_EMIT stopRequested();
        break;
    }
}
