// Plays an item while this process may have only so much more of something, and then another one
// without that limit:
//
//   limitedplayer SOURCE LIMIT AMOUNT MOMENT ITEM FIFO DEVICE NEXT_DEVICE
//
// SOURCE is uri, data or pipe, LIMIT descriptors (AMOUNT more of them) or memory (AMOUNT KiB more).
// MOMENT is first for the first player of the process or later for one that has a forerunner. Says,
// a line each, "started" or "refused", and the outcomes as Outcomes writes them; the lines of the
// forerunner have "before " in front, those of the next player "next ". Where no outcome comes
// because GStreamer lacks a thread, it says "nothing" and stops the player; "stuck" is its last
// word when a call does not come back.

#include "kit/PlayerProbe.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>
#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

/// A process that writes an item into a FIFO whenever it is told to, so that it needs nothing of
/// what is limited here.
class Writer
{
public:
    Writer(const QByteArray& bytes, const QByteArray& fifo);
    void write() const;

private:
    [[noreturn]] void serve(int orders, const QByteArray& bytes, const QByteArray& fifo) const;

    int ordersOut = -1;
};

Writer::Writer(const QByteArray& bytes, const QByteArray& fifo)
{
    int orders[2];
    if (::pipe2(orders, O_CLOEXEC) != 0) {
        std::abort();
    }
    ordersOut = orders[1];
    if (::fork() == 0) {
        ::close(orders[1]);
        serve(orders[0], bytes, fifo);
    }
    ::close(orders[0]);
}

void Writer::write() const
{
    if (::write(ordersOut, "w", 1) != 1) {
        std::abort();
    }
}

void Writer::serve(int orders, const QByteArray& bytes, const QByteArray& fifo) const
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    char order = 0;
    while (::read(orders, &order, 1) == 1) {
        // Without a reader, because the player could not open the FIFO, there is nothing to do.
        const int end = ::open(fifo.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (end >= 0) {
            // As much as a FIFO takes at once.
            static_cast<void>(!::write(end, bytes.constData(), std::size_t(bytes.size())));
            ::close(end);
        }
    }
    ::_exit(EXIT_SUCCESS);
}

/// What the player is to play, and from where.
struct Item
{
    QString source;
    QString path;
    QString fifo;
    QByteArray bytes;
};

SimplePlayer* makePlayer(const Item& item, const QString& device)
{
    const QString token("token");
    if (item.source == "uri") {
        return new UriSimplePlayer(item.path, token, device);
    }
    if (item.source == "data") {
        return new DataSimplePlayer(item.bytes, token, device);
    }
    return new StreamSimplePlayer(item.fifo, QString(), token, device);
}

/// The bytes of a file; none of a web address.
QByteArray readFile(const char* path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void say(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

/// Set where GStreamer may lack a thread: what it wanted to do in it may never be done.
bool mayLackThread = false;

/// Waits for an outcome, but for one that may never come only a while.
bool waitForOutcome(const PlayerProbe& probe)
{
    constexpr int whileMs = 3000;
    QElapsedTimer elapsed;
    elapsed.start();
    waitFor([&] {
        return !probe.outcomes.all.isEmpty() || (mayLackThread && elapsed.hasExpired(whileMs));
    });
    return !probe.outcomes.all.isEmpty();
}

/// Ends the process when a call in which GStreamer may wait for a thread does not come back.
class Guard
{
public:
    explicit Guard(unsigned seconds = 20)
    {
        static_cast<void>(std::signal(SIGALRM, [](int) {
            static_cast<void>(!::write(STDOUT_FILENO, "stuck\n", 6));
            ::_exit(EXIT_SUCCESS);
        }));
        ::alarm(mayLackThread ? seconds : 0);
    }
    ~Guard() { ::alarm(0); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
};

/// Plays once and says what comes of it.
void play(const Item& item, const Writer& writer, const QString& device, const QString& prefix)
{
    const Guard guard;
    PlayerProbe probe(makePlayer(item, device));
    const bool started = probe->startPlayback();
    say(prefix + (started ? "started" : "refused"));
    if (started) {
        writer.write();
        if (!waitForOutcome(probe)) {
            say(prefix + "nothing");
        }
    } else {
        deliverQueuedEvents();
    }
    probe->stopPlayback();
    deliverQueuedEvents();
    const QStringList outcomes = probe.destroy();
    for (const QString& outcome : item.source == "data" ? withoutRefusals(outcomes) : outcomes) {
        say(prefix + outcome);
    }
}

/// Where memory ends, GLib ends the process, at times by writing about it until its stack is full.
/// That leaves no room for this handler, so that it tells all other crashes from it.
void tellCrash(int /*signal*/)
{
    static_cast<void>(!::write(STDOUT_FILENO, "crashed\n", 8));
    ::_exit(EXIT_FAILURE);
}

/// A limit that this process may lower and raise again.
class Limit
{
public:
    explicit Limit(const QString& kind) : resource(kind == "memory" ? RLIMIT_AS : RLIMIT_NOFILE)
    {
        ::getrlimit(resource, &former);
    }

    void lower(long more)
    {
        rlimit limit = former;
        limit.rlim_cur = resource == RLIMIT_AS ? memoryLimit(more) : descriptorLimit(more);
        if (::setrlimit(resource, &limit) != 0) {
            std::perror("setrlimit");
            std::exit(EXIT_FAILURE);
        }
    }

    void raise() { ::setrlimit(resource, &former); }

private:
    static rlim_t memoryLimit(long more)
    {
        // The first number is that of all pages.
        const auto pages =
            static_cast<rlim_t>(readFile("/proc/self/statm").split(' ').first().toULongLong());
        return pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + rlim_t(more) * 1024;
    }

    /// The limit is on the numbers of descriptors: those below it that are free are what is left.
    static rlim_t descriptorLimit(long more)
    {
        int limit = 0;
        for (long free = 0; free < more || ::fcntl(limit, F_GETFD) != -1; ++limit) {
            free += ::fcntl(limit, F_GETFD) == -1 ? 1 : 0;
        }
        return rlim_t(limit);
    }

    const __rlimit_resource resource;
    rlimit former{};
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 9) {
        std::fprintf(stderr, "usage: limitedplayer SOURCE LIMIT AMOUNT MOMENT ITEM FIFO DEVICE "
                             "NEXT_DEVICE\n");
        return EXIT_FAILURE;
    }
    const Item item{argv[1], argv[5], argv[6], readFile(argv[5])};
    const Writer writer(item.bytes, argv[6]);
    const QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().addAppender(
        log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    const QString nextDevice(argv[8]);
    if (QString(argv[4]) == "later") {
        play(item, writer, nextDevice, "before ");
    }
    static_cast<void>(std::signal(SIGSEGV, tellCrash));
    mayLackThread = QString(argv[2]) == "memory";
    Limit limit(argv[2]);
    limit.lower(std::atol(argv[3]));
    play(item, writer, argv[7], QString());
    limit.raise();
    play(item, writer, nextDevice, "next ");
    return EXIT_SUCCESS;
}
