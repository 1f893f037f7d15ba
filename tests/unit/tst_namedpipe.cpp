#include "core/KovaNamedPipe.h"
#include "core/kova.h"
#include "kit/LogCapture.h"
#include "kit/PipeWriter.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QPointer>
#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>
#include <QtTest/QtTest>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

/// The named pipe, with writers that are processes of their own.
class TestNamedPipe : public QObject
{
    Q_OBJECT

    QString fifo;
    std::unique_ptr<LogCapture> log;

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void createMakesAFifoForTheOwnerOnly_data();
    void createMakesAFifoForTheOwnerOnly();
    void createKeepsTheModeOfAnExistingFifo();
    void createFailsWhenTheModeCannotBeSet();
    void whatIsNoFifoIsRefused_data();
    void whatIsNoFifoIsRefused();
    void whatIsNoFifoStaysUntouched();
    void openWithoutPermissionFails();
    void fileThatReplacesTheFifoIsNotRead_data();
    void fileThatReplacesTheFifoIsNotRead();
    void needsNoProcFileSystem();
    void failureLineTellsThePipesApart();
    void failureIsSilentWhenErrorsAreNotLogged();

    void openReturnsWithoutAWriter();
    void openWaitsForAWriter();
    void openWaitsThroughSignals();
    void openTwiceChangesNothing();
    void descriptorIsNotInherited();

    void readWithoutAWriterReturnsZero();
    void readReturnsAtOnceWhenAWriterIsSilent();
    void readWaitsForASlowWriter();
    void readWaitsThroughSignals();
    void nonBlockCanBeSwitchedWhileOpen();
    void readOfAClosedPipeFails();
    void readWithoutABufferFails();

    void notifierIsDisabledUntilEnabled();
    void allBytesArriveInOrder_data();
    void allBytesArriveInOrder();
    void writersFollowOneAnother();
    void killedWriterEndsTheData();
    void heldNotifierLeavesTheDataInThePipe();
    void lateWriterServesTheNextReader();

    void noActivationAfterClose();
    void closeInsideTheSlot();
    void deleteInsideTheSlot();
    void closeTwice();
    void closedPipeOpensAgain();
    void fifoStaysAfterClose();
    void fifoIsRemovedOnClose();
    void fifoThatWasNeverOpenedIsRemovedOnClose();
    void fileThatTookThePlaceIsNotRemoved();
    void fifoThatIsGoneNeedsNoRemoval();
    void failedRemovalIsLogged();
    void noDescriptorIsLeaked();
};

namespace {

constexpr int timeoutMs = 120000;

QStringList warnings;

void recordWarning(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text)
{
    if (type != QtDebugMsg && type != QtInfoMsg) {
        warnings.append(text);
    }
}

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

mode_t modeOf(const QString& path)
{
    struct stat status = {};
    return ::lstat(encoded(path).constData(), &status) == 0 ? status.st_mode : 0;
}

bool isFifo(const QString& path)
{
    return S_ISFIFO(modeOf(path));
}

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
}

/// Bytes whose order can be told: no period that any block size is a multiple of.
QByteArray pattern(int size, int seed = 0)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 31 + i / 251 + i / 65521 + seed) & 0xff);
    }
    return bytes;
}

/// One read of at most 16 bytes, which are appended to `received`.
int readSome(KovaNamedPipe& pipe, QByteArray* received = nullptr)
{
    std::array<char, 16> block{};
    const int count = pipe.read(block.data(), static_cast<int>(block.size()));
    if (received != nullptr && count > 0) {
        received->append(block.data(), count);
    }
    return count;
}

/// Reads block by block until nothing comes, as the stream player does, and then closes.
class Reader : public QObject
{
public:
    explicit Reader(KovaNamedPipe* pipe) : source(pipe)
    {
        kova::connect(pipe->readNotifier(), &QSocketNotifier::activated, this, &Reader::onActivated,
                      Qt::AutoConnection);
        pipe->readNotifier()->setEnabled(true);
    }

    void onActivated(int descriptor)
    {
        ++activations;
        if (source == nullptr) {
            return;
        }
        lastDescriptor = descriptor;
        std::array<char, 4096> block{};
        const int count = source->read(block.data(), static_cast<int>(block.size()));
        if (count > 0) {
            bytes.append(block.data(), count);
            if (onBlock) {
                onBlock();
            }
            return;
        }
        result = count;
        ended = true;
        onEnd();
    }

    QPointer<KovaNamedPipe> source;
    QByteArray bytes;
    int activations = 0;
    int lastDescriptor = -1;
    bool ended = false;
    int result = 1;
    std::function<void()> onBlock;
    std::function<void()> onEnd = [this] { source->close(); };
};

/// Does something while the thread that made it sleeps in a system call.
class WhileAsleep
{
public:
    explicit WhileAsleep(const std::function<void(WhileAsleep&)>& action)
        : sleeper(pthread_self()),
          statePath("/proc/self/task/" + std::to_string(::syscall(SYS_gettid)) + "/stat"),
          helper([this, action] { action(*this); })
    {
    }
    ~WhileAsleep()
    {
        helper.join();
        ::close(end);
    }
    WhileAsleep(const WhileAsleep&) = delete;
    WhileAsleep& operator=(const WhileAsleep&) = delete;

    void waitUntilAsleep() const
    {
        char state = 'R';
        while (state != 'S') {
            std::this_thread::yield();
            std::string text;
            std::getline(std::ifstream(statePath), text);
            state = text.at(text.rfind(')') + 2);
        }
    }

    /// Interrupts the sleep and waits until the signal was handled.
    void interrupt() const
    {
        const int before = handledSignals;
        waitUntilAsleep();
        pthread_kill(sleeper, SIGUSR1);
        while (handledSignals == before) {
            std::this_thread::yield();
        }
    }

    /// Writes into a FIFO through an end that stays open as long as this object: what is written
    /// waits for a reader that seemed to sleep before it did. Also opened for reading, which does
    /// not wait: a reader that failed would never come.
    void write(const QByteArray& path, const char* text)
    {
        end = ::open(path.constData(), O_RDWR | O_CLOEXEC);
        if (::write(end, text, std::strlen(text)) < 0) {
            qFatal("write: %s", std::strerror(errno));
        }
    }

    static void handleSignals()
    {
        struct sigaction action = {};
        action.sa_handler = [](int /*signal*/) { ++handledSignals; }; // and no SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
    }

private:
    static std::atomic<int> handledSignals;
    const pthread_t sleeper;
    const std::string statePath;
    int end = -1;
    std::thread helper;
};

std::atomic<int> WhileAsleep::handledSignals{0};

/// Whether the file system lets nobody change the mode of a file.
std::atomic<bool> modesAreFixed{false};

} // namespace

/// Stands in for the system's function, also in the library under test.
extern "C" __attribute__((visibility("default"))) int fchmodat(int folder, const char* path,
                                                               mode_t mode, int flags) noexcept
{
    if (modesAreFixed) {
        errno = EPERM;
        return -1;
    }
    static const auto original =
        reinterpret_cast<decltype(&::fchmodat)>(::dlsym(RTLD_NEXT, "fchmodat"));
    return original(folder, path, mode, flags);
}

/// Called, once, just before the library under test opens a file.
static std::function<void()> beforeNextOpen;

/// Stands in for the system's function, also in the library under test, which sees large files.
extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (beforeNextOpen) {
        std::exchange(beforeNextOpen, nullptr)();
    }
    static const auto original =
        reinterpret_cast<decltype(&::open64)>(::dlsym(RTLD_NEXT, "open64"));
    return original(path, flags, mode);
}

void TestNamedPipe::initTestCase()
{
    WhileAsleep::handleSignals();
}

void TestNamedPipe::init()
{
    fifo = TestProcess::path(QStringLiteral("fifo"));
    QDir(fifo).removeRecursively();
    QFile::remove(fifo);
    log = std::make_unique<LogCapture>("KovaNamedPipe");
    warnings.clear();
    qInstallMessageHandler(recordWarning);
}

void TestNamedPipe::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    qInstallMessageHandler(nullptr);
    log.reset();
    // Qt complains here of a notifier that outlives its descriptor, among others.
    QCOMPARE(warnings, QStringList());
}

void TestNamedPipe::createMakesAFifoForTheOwnerOnly_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("umask 000") << 0;
    QTest::newRow("umask 022") << 022;
    QTest::newRow("umask 777") << 0777;
}

void TestNamedPipe::createMakesAFifoForTheOwnerOnly()
{
    QFETCH(int, mask);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    const mode_t before = ::umask(static_cast<mode_t>(mask));
    const bool created = pipe.create();
    ::umask(before);
    QVERIFY(created);
    QCOMPARE(modeOf(fifo), mode_t(S_IFIFO | 0600));
    QVERIFY(pipe.open(false));
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::createKeepsTheModeOfAnExistingFifo()
{
    QCOMPARE(::mkfifo(encoded(fifo).constData(), 0600), 0);
    QCOMPARE(::chmod(encoded(fifo).constData(), 0646), 0);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QCOMPARE(modeOf(fifo), mode_t(S_IFIFO | 0646));
}

void TestNamedPipe::createFailsWhenTheModeCannotBeSet()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    const mode_t before = ::umask(0777);
    modesAreFixed = true;
    const bool created = pipe.create();
    modesAreFixed = false;
    ::umask(before);
    QVERIFY(!created);
    QCOMPARE(log->lines(),
             QStringList(QStringLiteral("ERROR Failed to create named pipe, Operation "
                                        "not permitted, id: 1 name: ") +
                         fifo));
}

using MakeFile = std::function<QString(const QString&)>;
Q_DECLARE_METATYPE(MakeFile)

void TestNamedPipe::whatIsNoFifoIsRefused_data()
{
    QTest::addColumn<MakeFile>("make");
    QTest::addColumn<QString>("openReason");
    QTest::addColumn<QString>("createReason");

    const auto row = [](const char* name, const char* openReason, const char* createReason,
                        const MakeFile& make) {
        QTest::newRow(name) << make << QString::fromLatin1(openReason)
                            << QString::fromLatin1(createReason);
    };
    const auto same = [row](const char* name, const char* reason, const MakeFile& make) {
        row(name, reason, reason, make);
    };
    same("regular file", "it is a regular file", [](const QString& path) {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) ? path : QString();
    });
    same("directory", "it is a directory",
         [](const QString& path) { return QDir().mkdir(path) ? path : QString(); });
    same("device", "it is a device", [](const QString&) {
        // One that not even a broken pipe, run by root, could remove.
        static const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        return QFile::decodeName(::ptsname(terminal));
    });
    same("socket", "it is a socket", [](const QString& path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, encoded(path).constData(), sizeof address.sun_path - 1);
        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int bound =
            ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ::close(descriptor);
        return bound == 0 ? path : QString();
    });
    same("symbolic link to a FIFO", "it is a symbolic link", [](const QString& path) {
        const QString target = path + QStringLiteral(".target");
        ::mkfifo(encoded(target).constData(), 0600);
        return QFile::link(target, path) ? path : QString();
    });
    same("symbolic link to nothing", "it is a symbolic link", [](const QString& path) {
        return QFile::link(path + QStringLiteral(".nothing"), path) ? path : QString();
    });
    same("no name", "the name is empty", [](const QString&) { return QStringLiteral(""); });
    same("null character", "the name contains a null character",
         [](const QString& path) { return path + QChar(QChar::Null) + QLatin1Char('x'); });
    same("name too long", "File name too long",
         [](const QString& path) { return path + QString(300, QLatin1Char('x')); });
    same("path too long", "File name too long",
         [](const QString& path) { return path + QStringLiteral("/x").repeated(5000); });
    same("no such folder", "No such file or directory",
         [](const QString& path) { return path + QStringLiteral("/x"); });
    same("folder that is a file", "Not a directory",
         [](const QString&) { return QStringLiteral("/dev/null/x"); });
    row("nothing there", "No such file or directory", "", [](const QString& path) { return path; });
}

void TestNamedPipe::whatIsNoFifoIsRefused()
{
    QFETCH(MakeFile, make);
    QFETCH(QString, openReason);
    QFETCH(QString, createReason);
    const QString path = make(fifo);
    QVERIFY(!path.isNull());

    const auto line = [path](const char* failure, const QString& reason) {
        return QStringLiteral("ERROR Failed to %1 named pipe, %2, id: 5 name: %3")
            .arg(QLatin1String(failure), reason, path);
    };
    KovaNamedPipe pipe(path, 5, nullptr, true);
    QVERIFY(!pipe.open(false));
    QVERIFY(!pipe.open(true));
    QVERIFY(pipe.readNotifier() == nullptr);
    QCOMPARE(log->lines(), QStringList({line("open", openReason), line("open", openReason)}));

    log->clear();
    QCOMPARE(pipe.create(), createReason.isEmpty());
    QCOMPARE(log->lines(),
             createReason.isEmpty() ? QStringList() : QStringList(line("create", createReason)));
}

void TestNamedPipe::whatIsNoFifoStaysUntouched()
{
    QFile file(fifo);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.write("precious") > 0);
    file.close();
    QCOMPARE(::chmod(encoded(fifo).constData(), 0640), 0);
    {
        KovaNamedPipe pipe(fifo, 1, nullptr, true);
        QVERIFY(!pipe.create());
        QVERIFY(!pipe.open(false));
        pipe.close();
    }
    QCOMPARE(modeOf(fifo), mode_t(S_IFREG | 0640));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("precious"));
}

void TestNamedPipe::openWithoutPermissionFails()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QCOMPARE(::chmod(encoded(fifo).constData(), 0), 0);
    // For a test that root runs: root may read everything, nobody may not.
    QCOMPARE(::chmod(encoded(TestProcess::path()).constData(), 0711), 0);
    const int self = ::setfsuid(65534);
    const bool opened = pipe.open(false);
    ::setfsuid(static_cast<uid_t>(self));
    QVERIFY(!opened);
    QCOMPARE(
        log->texts("ERROR"),
        QStringList(QStringLiteral("Failed to open named pipe, Permission denied, id: 1 name: ") +
                    fifo));
}

void TestNamedPipe::fileThatReplacesTheFifoIsNotRead_data()
{
    QTest::addColumn<bool>("isLink");
    QTest::addColumn<QString>("reason");
    QTest::newRow("regular file") << false << "it is a regular file";
    QTest::newRow("symbolic link") << true << "Too many levels of symbolic links";
}

void TestNamedPipe::fileThatReplacesTheFifoIsNotRead()
{
    QFETCH(bool, isLink);
    QFETCH(QString, reason);
    const int before = openDescriptors();
    const QString file = fifo + ".file";
    QVERIFY(QFile(file).open(QIODevice::WriteOnly));
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    beforeNextOpen = [&] {
        QFile::remove(fifo);
        isLink ? QFile::link(file, fifo) : QFile::rename(file, fifo);
    };
    QVERIFY(!pipe.open(false));
    QCOMPARE(log->texts("ERROR"),
             QStringList("Failed to open named pipe, " + reason + ", id: 1 name: " + fifo));
    QCOMPARE(openDescriptors(), before);
}

void TestNamedPipe::needsNoProcFileSystem()
{
    const QString problem = TestProcess::runWithoutProc(
        {"openReturnsWithoutAWriter", "allBytesArriveInOrder", "whatIsNoFifoIsRefused",
         "createMakesAFifoForTheOwnerOnly:umask 022", "fifoIsRemovedOnClose"});
    QCOMPARE(problem, QString());
}

void TestNamedPipe::failureLineTellsThePipesApart()
{
    KovaNamedPipe first(fifo, 1, nullptr, false);
    KovaNamedPipe second(fifo, -7, nullptr, false);
    QVERIFY(!first.open(false));
    QVERIFY(!second.open(false));
    const QStringList lines = log->texts("ERROR");
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines.at(0).contains(QStringLiteral(", id: 1 name: ") + fifo));
    QVERIFY(lines.at(1).contains(QStringLiteral(", id: -7 name: ") + fifo));
}

void TestNamedPipe::failureIsSilentWhenErrorsAreNotLogged()
{
    log->setThreshold(log4cplus::FATAL_LOG_LEVEL);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(!pipe.open(false));
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::openReturnsWithoutAWriter()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.readNotifier() == nullptr);
    QVERIFY(pipe.open(false));
    QVERIFY(pipe.readNotifier() != nullptr);
    QCOMPARE(pipe.readNotifier()->type(), QSocketNotifier::Read);
    QCOMPARE(pipe.readNotifier()->parent(), &pipe);
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::openWaitsForAWriter()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    std::atomic<bool> aboutToWrite{false};
    const WhileAsleep writer([&](WhileAsleep& reader) {
        reader.waitUntilAsleep();
        aboutToWrite = true;
        reader.write(encoded(fifo), "data");
    });
    QVERIFY(pipe.open(true));
    QVERIFY(aboutToWrite);
    QCOMPARE(readSome(pipe), 4);
}

void TestNamedPipe::openWaitsThroughSignals()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    const WhileAsleep writer([&](WhileAsleep& reader) {
        for (int i = 0; i < 3; ++i) {
            reader.interrupt();
        }
        reader.write(encoded(fifo), "data");
    });
    QVERIFY(pipe.open(true));
    QCOMPARE(log->lines(), QStringList());
    QCOMPARE(readSome(pipe), 4);
}

void TestNamedPipe::openTwiceChangesNothing()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const int before = openDescriptors();
    QSocketNotifier* const notifier = pipe.readNotifier();
    notifier->setEnabled(true);
    QVERIFY(pipe.open(false));
    QCOMPARE(pipe.readNotifier(), notifier);
    QVERIFY(pipe.open(true));
    QCOMPARE(pipe.readNotifier(), notifier);
    QVERIFY(notifier->isEnabled());
    QCOMPARE(openDescriptors(), before);
}

void TestNamedPipe::descriptorIsNotInherited()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QProcess child;
    child.start(QStringLiteral("ls"), {QStringLiteral("-l"), QStringLiteral("/proc/self/fd")});
    QVERIFY(child.waitForFinished(timeoutMs));
    const QByteArray listed = child.readAllStandardOutput();
    QVERIFY2(listed.contains(" 0 -> "), listed);
    QVERIFY2(!listed.contains(encoded(fifo)), listed);
}

void TestNamedPipe::readWithoutAWriterReturnsZero()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QCOMPARE(readSome(pipe), 0);
    pipe.setNonBlock(true);
    QCOMPARE(readSome(pipe), 0);
}

void TestNamedPipe::readReturnsAtOnceWhenAWriterIsSilent()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    PipeWriter writer(fifo, "", {1, 0, true});
    QVERIFY(writer.waitForOpened());
    QCOMPARE(readSome(pipe), -EAGAIN);
    QVERIFY(writer.close());
    QCOMPARE(readSome(pipe), 0);
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::readWaitsForASlowWriter()
{
    const QByteArray bytes = pattern(40);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    PipeWriter writer(fifo, bytes, {4, 5, false});
    QVERIFY(pipe.open(true));
    QByteArray received;
    int count = 0;
    do {
        count = readSome(pipe, &received);
    } while (count > 0);
    QCOMPARE(count, 0);
    QCOMPARE(received, bytes);
    QVERIFY(writer.waitForFinished());
}

void TestNamedPipe::readWaitsThroughSignals()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const int end = ::open(encoded(fifo).constData(), O_WRONLY | O_CLOEXEC);
    const WhileAsleep writer([&](WhileAsleep& reader) {
        for (int i = 0; i < 3; ++i) {
            reader.interrupt();
        }
        reader.write(encoded(fifo), "data");
    });
    QCOMPARE(readSome(pipe), 4);
    QCOMPARE(log->lines(), QStringList());
    ::close(end);
}

void TestNamedPipe::nonBlockCanBeSwitchedWhileOpen()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const auto waits = [&pipe] {
        const int descriptor = static_cast<int>(pipe.readNotifier()->socket());
        return (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
    };
    QVERIFY(waits());
    pipe.setNonBlock(true);
    QVERIFY(!waits());
    pipe.close();
    QVERIFY(pipe.open(false));
    QVERIFY(!waits());
    pipe.setNonBlock(false);
    QVERIFY(waits());
}

void TestNamedPipe::readOfAClosedPipeFails()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QCOMPARE(readSome(pipe), -EBADF);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    pipe.close();
    log->clear();
    QCOMPARE(readSome(pipe), -EBADF);
    QCOMPARE(
        log->texts("ERROR"),
        QStringList(QStringLiteral("Failed to read named pipe, Bad file descriptor, id: 1 name: ") +
                    fifo));
}

void TestNamedPipe::readWithoutABufferFails()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const QByteArray block("untouched");
    QCOMPARE(pipe.read(block.constData(), 0), -EINVAL);
    QCOMPARE(pipe.read(block.constData(), -1), -EINVAL);
    QCOMPARE(pipe.read(nullptr, 16), -EINVAL);
    QCOMPARE(log->texts("ERROR").size(), 3);
    QCOMPARE(block, QByteArray("untouched"));
}

void TestNamedPipe::notifierIsDisabledUntilEnabled()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QVERIFY(!pipe.readNotifier()->isEnabled());
    PipeWriter writer(fifo, "data");
    QVERIFY(writer.waitForFinished());
    QSignalSpy spy(pipe.readNotifier(), &QSocketNotifier::activated);
    QCoreApplication::processEvents();
    QCOMPARE(spy.count(), 0);
    spy.clear();
    Reader reader(&pipe);
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, timeoutMs);
    QCOMPARE(reader.bytes, QByteArray("data"));
}

void TestNamedPipe::allBytesArriveInOrder_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("chunk");
    QTest::addColumn<int>("pauseMs");
    QTest::newRow("nothing") << 0 << 1 << 0;
    QTest::newRow("one byte") << 1 << 1 << 0;
    QTest::newRow("one block") << 4096 << 4096 << 0;
    QTest::newRow("one block and a byte") << 4097 << 4097 << 0;
    QTest::newRow("byte by byte") << 3000 << 1 << 0;
    QTest::newRow("slow") << 2000 << 100 << 5;
    QTest::newRow("odd chunks") << 300000 << 4999 << 0;
    QTest::newRow("3 MiB at once") << (3 << 20) << (3 << 20) << 0;
}

void TestNamedPipe::allBytesArriveInOrder()
{
    QFETCH(int, size);
    QFETCH(int, chunk);
    QFETCH(int, pauseMs);
    const QByteArray bytes = pattern(size);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const int descriptor = static_cast<int>(pipe.readNotifier()->socket());
    Reader reader(&pipe);
    PipeWriter writer(fifo, bytes, {chunk, pauseMs, false});
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, timeoutMs);
    QCOMPARE(reader.result, 0);
    QCOMPARE(reader.lastDescriptor, descriptor);
    QVERIFY(reader.bytes == bytes);
    QVERIFY(writer.waitForFinished());
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::writersFollowOneAnother()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QByteArray expected;
    Reader reader(&pipe);
    reader.onEnd = [&] { pipe.readNotifier()->setEnabled(false); };
    for (int i = 0; i < 3; ++i) {
        const QByteArray bytes = pattern(10000, i);
        expected += bytes;
        reader.ended = false;
        PipeWriter writer(fifo, bytes);
        QVERIFY(writer.waitForOpened()); // else the writer before this one is still seen to be gone
        pipe.readNotifier()->setEnabled(true);
        QTRY_VERIFY_WITH_TIMEOUT(reader.ended, timeoutMs);
        QCOMPARE(reader.result, 0);
        QVERIFY(writer.waitForFinished());
    }
    QVERIFY(reader.bytes == expected);
}

void TestNamedPipe::killedWriterEndsTheData()
{
    const QByteArray bytes = pattern(5000);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    Reader reader(&pipe);
    PipeWriter writer(fifo, bytes, {bytes.size(), 0, true});
    QTRY_COMPARE_WITH_TIMEOUT(reader.bytes.size(), bytes.size(), timeoutMs);
    QVERIFY(!reader.ended);
    QVERIFY(writer.kill());
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, timeoutMs);
    QCOMPARE(reader.result, 0);
    QVERIFY(reader.bytes == bytes);
}

void TestNamedPipe::heldNotifierLeavesTheDataInThePipe()
{
    const QByteArray bytes = pattern(30000);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    Reader reader(&pipe);
    reader.onBlock = [&] { pipe.readNotifier()->setEnabled(false); };
    PipeWriter writer(fifo, bytes, {bytes.size(), 0, false});
    while (!reader.ended) {
        const int before = reader.bytes.size();
        pipe.readNotifier()->setEnabled(true);
        QTRY_VERIFY_WITH_TIMEOUT(reader.ended || reader.bytes.size() > before, timeoutMs);
        QVERIFY(reader.bytes.size() - before <= 4096); // one block for each time it was enabled
        const int held = reader.activations;
        QCoreApplication::processEvents();
        QCOMPARE(reader.activations, held);
    }
    QVERIFY(reader.bytes == bytes);
}

void TestNamedPipe::lateWriterServesTheNextReader()
{
    {
        KovaNamedPipe pipe(fifo, 1, nullptr, false);
        QVERIFY(pipe.create());
        QVERIFY(pipe.open(false));
    }
    // Without a reader, a writer that does not wait is turned away ...
    QCOMPARE(::open(encoded(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1);
    QCOMPARE(errno, ENXIO);
    // ... and one that waits gets the next reader.
    PipeWriter writer(fifo, "late");
    KovaNamedPipe next(fifo, 2, nullptr, false);
    next.setNonBlock(true);
    QVERIFY(next.create());
    QVERIFY(next.open(false));
    Reader reader(&next);
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, timeoutMs);
    QCOMPARE(reader.bytes, QByteArray("late"));
    QVERIFY(writer.waitForFinished());
}

void TestNamedPipe::noActivationAfterClose()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    Reader reader(&pipe);
    PipeWriter writer(fifo, "data", {4, 0, true});
    QVERIFY(writer.waitForWritten()); // readable from now on, and no event was dispatched yet
    const QPointer<QSocketNotifier> notifier = pipe.readNotifier();
    pipe.close();
    QVERIFY(pipe.readNotifier() == nullptr);
    QVERIFY(!notifier->isEnabled());
    // The next file with the same descriptor is no business of the old notifier.
    KovaNamedPipe next(fifo, 2, nullptr, false);
    QVERIFY(next.open(false));
    QCoreApplication::processEvents();
    QCOMPARE(reader.activations, 0);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(notifier.isNull());
}

void TestNamedPipe::closeInsideTheSlot()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const QPointer<QSocketNotifier> notifier = pipe.readNotifier();
    Reader reader(&pipe);
    bool aliveAfterClose = false;
    reader.onBlock = [&] {
        pipe.close();
        aliveAfterClose = !notifier.isNull();
    };
    PipeWriter writer(fifo, "data", {4, 0, true});
    QTRY_COMPARE_WITH_TIMEOUT(reader.activations, 1, timeoutMs);
    QVERIFY(aliveAfterClose);
    QVERIFY(writer.waitForWritten());
    QVERIFY(writer.close());
    QCoreApplication::processEvents();
    QCOMPARE(reader.activations, 1);
}

void TestNamedPipe::deleteInsideTheSlot()
{
    auto* pipe = new KovaNamedPipe(fifo, 1, nullptr, false);
    pipe->setNonBlock(true);
    QVERIFY(pipe->create());
    QVERIFY(pipe->open(false));
    Reader reader(pipe);
    reader.onBlock = [&] { delete pipe; };
    PipeWriter writer(fifo, "data");
    QTRY_VERIFY_WITH_TIMEOUT(reader.source.isNull(), timeoutMs);
    QCoreApplication::processEvents();
    QCOMPARE(reader.activations, 1);
}

void TestNamedPipe::closeTwice()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, true);
    pipe.close();
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const int descriptor = static_cast<int>(pipe.readNotifier()->socket());
    pipe.close();
    // Somebody else's descriptor and file by now: the second close has to leave them alone.
    QCOMPARE(::mkfifo(encoded(fifo).constData(), 0600), 0);
    const int other = ::dup3(STDERR_FILENO, descriptor, O_CLOEXEC);
    QCOMPARE(other, descriptor);
    pipe.close();
    QVERIFY(::fcntl(other, F_GETFD) != -1);
    QVERIFY(isFifo(fifo));
    QCOMPARE(log->lines(), QStringList());
    ::close(other);
}

void TestNamedPipe::closedPipeOpensAgain()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    for (int i = 0; i < 2; ++i) {
        QVERIFY(pipe.open(false));
        Reader reader(&pipe);
        PipeWriter writer(fifo, "data");
        QTRY_VERIFY_WITH_TIMEOUT(reader.ended, timeoutMs);
        QCOMPARE(reader.bytes, QByteArray("data"));
    }
}

void TestNamedPipe::fifoStaysAfterClose()
{
    {
        KovaNamedPipe pipe(fifo, 1, nullptr, false);
        QVERIFY(pipe.create());
        QVERIFY(pipe.open(false));
        pipe.close();
        QVERIFY(isFifo(fifo));
    }
    QVERIFY(isFifo(fifo));
}

void TestNamedPipe::fifoIsRemovedOnClose()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QVERIFY(isFifo(fifo));
    pipe.close();
    QCOMPARE(modeOf(fifo), mode_t(0));
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::fifoThatWasNeverOpenedIsRemovedOnClose()
{
    {
        KovaNamedPipe pipe(fifo, 1, nullptr, true);
        QVERIFY(pipe.create());
    }
    QCOMPARE(modeOf(fifo), mode_t(0));
}

void TestNamedPipe::fileThatTookThePlaceIsNotRemoved()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QVERIFY(QFile::remove(fifo));
    QCOMPARE(::mkfifo(encoded(fifo).constData(), 0600), 0);
    pipe.close();
    QVERIFY(isFifo(fifo));
    QCOMPARE(log->texts("ERROR"),
             QStringList(QStringLiteral("Failed to remove named pipe, another file has taken its "
                                        "place, id: 1 name: ") +
                         fifo));
}

void TestNamedPipe::fifoThatIsGoneNeedsNoRemoval()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, true);
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    QVERIFY(QFile::remove(fifo));
    pipe.close();
    QCOMPARE(log->lines(), QStringList());
}

void TestNamedPipe::failedRemovalIsLogged()
{
    QVERIFY(QDir().mkdir(fifo));
    const QString inside = fifo + QStringLiteral("/fifo");
    KovaNamedPipe pipe(inside, 1, nullptr, true);
    QVERIFY(pipe.create());
    QVERIFY(QDir(fifo).removeRecursively());
    QVERIFY(QFile(fifo).open(QIODevice::WriteOnly));
    pipe.close();
    QCOMPARE(log->lines(), QStringList(QStringLiteral("ERROR Failed to remove named pipe, Not a "
                                                      "directory, id: 1 name: ") +
                                       inside));
}

void TestNamedPipe::noDescriptorIsLeaked()
{
    QVERIFY(QFile(fifo).open(QIODevice::WriteOnly));
    const QString other = fifo + QStringLiteral(".leak");
    const int before = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        KovaNamedPipe refused(fifo, 1, nullptr, true);
        QVERIFY(!refused.create());
        QVERIFY(!refused.open(false));
        KovaNamedPipe pipe(other, 2, nullptr, true);
        QVERIFY(pipe.create());
        QVERIFY(pipe.open(false));
        pipe.readNotifier()->setEnabled(true);
        pipe.close();
    }
    QCOMPARE(openDescriptors(), before);
}

KOVA_TEST(TestNamedPipe)
#include "tst_namedpipe.moc"
