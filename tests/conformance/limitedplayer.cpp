// Plays an item while this process may have only so much more of something, and then another one
// without that limit:
//
//   limitedplayer SOURCE LIMIT AMOUNT WHICH ITEM FIFO DEVICE NEXT_DEVICE
//
// SOURCE is the name of a kind of source, LIMIT "descriptors" (AMOUNT more of them) or "memory"
// (AMOUNT KiB more). WHICH is "first" if the limited player is the first one of the process, and
// "later" if an unlimited one plays before it. Prints, a line each, "started" or "refused" and the
// outcomes as Outcomes writes them; the lines of the player before have "before " in front, those
// of the next player "next ". Where no outcome comes because GStreamer lacks a thread, it prints
// "nothing" and stops the player. Its last line is "stuck" when a call does not return.

#include "kit/Source.h"

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

/// A process that writes an item into a FIFO at each request, so that it needs nothing of what is
/// limited here.
class LimitlessWriter
{
public:
    LimitlessWriter(const QByteArray& bytes, const QByteArray& fifo);
    void write() const;

private:
    [[noreturn]] void serve(int requests, const QByteArray& bytes, const QByteArray& fifo) const;

    int requestsOut = -1;
};

LimitlessWriter::LimitlessWriter(const QByteArray& bytes, const QByteArray& fifo)
{
    int requests[2];
    if (::pipe2(requests, O_CLOEXEC) != 0) {
        std::abort();
    }
    requestsOut = requests[1];
    if (::fork() == 0) {
        ::close(requests[1]);
        serve(requests[0], bytes, fifo);
    }
    ::close(requests[0]);
}

void LimitlessWriter::write() const
{
    if (::write(requestsOut, "w", 1) != 1) {
        std::abort();
    }
}

void LimitlessWriter::serve(int requests, const QByteArray& bytes, const QByteArray& fifo) const
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    char request = 0;
    while (::read(requests, &request, 1) == 1) {
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

/// The bytes of a file; none of a web address.
QByteArray readFile(const char* path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// A kind of source by its name. The process ends if there is none.
const Source& sourceNamed(const char* name)
{
    for (const Source* source : Source::all()) {
        if (qstrcmp(source->name, name) == 0) {
            return *source;
        }
    }
    std::abort();
}

void print(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

/// Set where GStreamer may lack a thread. What the thread is for may never happen then.
bool mayLackThread = false;

/// Waits for an outcome, but not for long if it may never come.
bool waitForOutcome(const SourcePlayer& player)
{
    constexpr int limitMs = 3000;
    QElapsedTimer elapsed;
    elapsed.start();
    waitFor([&] {
        return !player.outcomes().isEmpty() || (mayLackThread && elapsed.hasExpired(limitMs));
    });
    return !player.outcomes().isEmpty();
}

/// Ends the process when a call in which GStreamer may wait for a thread does not return.
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

/// Plays once and prints what follows.
void play(const Source& source, const Item& item, const LimitlessWriter& writer,
          const QString& device, const QString& prefix)
{
    const Guard guard;
    SourcePlayer player(source, item, device);
    const bool started = player->startPlayback();
    print(prefix + (started ? "started" : "refused"));
    if (started) {
        writer.write();
        if (!waitForOutcome(player)) {
            print(prefix + "nothing");
        }
    } else {
        deliverQueuedEvents();
    }
    player->stopPlayback();
    deliverQueuedEvents();
    player.probe.destroy();
    for (const QString& outcome : player.outcomes()) {
        print(prefix + outcome);
    }
}

/// GLib ends a process that has no memory left, sometimes by logging about it until the stack is
/// full. That leaves no room for this handler, which therefore runs for all other crashes only.
void printCrash(int /*signal*/)
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
        std::fprintf(stderr, "usage: limitedplayer SOURCE LIMIT AMOUNT WHICH ITEM FIFO DEVICE "
                             "NEXT_DEVICE\n");
        return EXIT_FAILURE;
    }
    const Source& source = sourceNamed(argv[1]);
    Item item;
    item.file = argv[5];
    item.bytes = readFile(argv[5]);
    item.fifo = argv[6];
    const LimitlessWriter writer(item.bytes, argv[6]);
    const QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().addAppender(
        log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    const QString nextDevice(argv[8]);
    if (QString(argv[4]) == "later") {
        play(source, item, writer, nextDevice, "before ");
    }
    static_cast<void>(std::signal(SIGSEGV, printCrash));
    mayLackThread = QString(argv[2]) == "memory";
    Limit limit(argv[2]);
    limit.lower(std::atol(argv[3]));
    play(source, item, writer, argv[7], QString());
    limit.raise();
    play(source, item, writer, nextDevice, "next ");
    return EXIT_SUCCESS;
}
