#include "unit/PipeTest.h"

#include "kit/Holdings.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>
#include <QtTest/QtTest>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <utility>

/// Creating, opening, closing and removing a named pipe.
class TestNamedPipe : public PipeTest
{
    Q_OBJECT

private Q_SLOTS:
    void init() { prepare(); }
    void cleanup() { QCOMPARE(finish(), QStringList()); }

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
    void failureLineContainsTheId();
    void failureIsSilentWhenErrorsAreNotLogged();

    void openReturnsWithoutAWriter();
    void openTwiceChangesNothing();
    void descriptorIsNotInherited();
    void descriptorMayBeZero();

    void closeTwice();
    void fifoStaysAfterClose();
    void fifoIsRemovedOnClose();
    void fifoThatWasNeverOpenedIsRemovedOnClose();
    void fifoOfAnotherProcessIsRemovedOnClose();
    void fileThatReplacedTheFifoIsNotRemoved();
    void fifoThatIsGoneNeedsNoRemoval();
    void failedRemovalIsLogged();
    void noDescriptorIsLeaked();
};

namespace {

mode_t modeOf(const QString& path)
{
    struct stat status = {};
    return ::lstat(encoded(path).constData(), &status) == 0 ? status.st_mode : 0;
}

bool isFifo(const QString& path)
{
    return S_ISFIFO(modeOf(path));
}

/// Whether changing the mode of a file fails.
std::atomic<bool> modesAreFixed{false};

} // namespace

/// Replaces the system's function, also in the library under test.
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

/// Replaces the system's function, also in the library under test, which sees large files.
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
    // Root may read everything: the pipe is opened as another user.
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
    const int before = Holdings::now().descriptors;
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
    QVERIFY(!pipe.open(false)); // and is still not open
    QCOMPARE(Holdings::now().descriptors, before);
}

void TestNamedPipe::needsNoProcFileSystem()
{
    const QString problem = TestProcess::runWithoutProc(
        {"openReturnsWithoutAWriter", "whatIsNoFifoIsRefused",
         "createMakesAFifoForTheOwnerOnly:umask 022", "fifoIsRemovedOnClose"});
    QCOMPARE(problem, QString());
}

void TestNamedPipe::failureLineContainsTheId()
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

void TestNamedPipe::openTwiceChangesNothing()
{
    OpenPipe pipe(fifo);
    const int before = Holdings::now().descriptors;
    QSocketNotifier* const notifier = pipe.readNotifier();
    notifier->setEnabled(true);
    QVERIFY(pipe.open(false));
    QCOMPARE(pipe.readNotifier(), notifier);
    QVERIFY(pipe.open(true));
    QCOMPARE(pipe.readNotifier(), notifier);
    QVERIFY(notifier->isEnabled());
    QCOMPARE(Holdings::now().descriptors, before);
}

void TestNamedPipe::descriptorIsNotInherited()
{
    OpenPipe pipe(fifo);
    QProcess child;
    child.start(QStringLiteral("ls"), {QStringLiteral("-l"), QStringLiteral("/proc/self/fd")});
    QVERIFY(child.waitForFinished(patience));
    const QByteArray listed = child.readAllStandardOutput();
    QVERIFY2(listed.contains(" 0 -> "), listed);
    QVERIFY2(!listed.contains(encoded(fifo)), listed);
}

void TestNamedPipe::descriptorMayBeZero()
{
    const int standardInput = ::dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    const bool opened = pipe.create() && pipe.open(false);
    const int before = Holdings::now().descriptors;
    const bool openedAgain = pipe.open(false);
    const int after = Holdings::now().descriptors;
    const qintptr descriptor = pipe.readNotifier() ? pipe.readNotifier()->socket() : -1;
    pipe.setNonBlock(true);
    const int flags = ::fcntl(STDIN_FILENO, F_GETFL);
    pipe.close();
    const bool closed = ::fcntl(STDIN_FILENO, F_GETFD) == -1;
    ::dup2(standardInput, STDIN_FILENO);
    ::close(standardInput);
    QVERIFY(opened && openedAgain && closed);
    QCOMPARE(descriptor, qintptr(0));
    QCOMPARE(after, before);
    QVERIFY((flags & O_NONBLOCK) != 0);
}

void TestNamedPipe::closeTwice()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, true);
    pipe.close();
    QVERIFY(pipe.create());
    QVERIFY(pipe.open(false));
    const int descriptor = static_cast<int>(pipe.readNotifier()->socket());
    pipe.close();
    // Descriptor and path are in use again: the second close must not touch them.
    QCOMPARE(::mkfifo(encoded(fifo).constData(), 0600), 0);
    const int other = ::dup3(STDERR_FILENO, descriptor, O_CLOEXEC);
    QCOMPARE(other, descriptor);
    pipe.close();
    QVERIFY(::fcntl(other, F_GETFD) != -1);
    QVERIFY(isFifo(fifo));
    QCOMPARE(log->lines(), QStringList());
    ::close(other);
}

void TestNamedPipe::fifoStaysAfterClose()
{
    {
        OpenPipe pipe(fifo);
        pipe.close();
        QVERIFY(isFifo(fifo));
    }
    QVERIFY(isFifo(fifo));
}

void TestNamedPipe::fifoIsRemovedOnClose()
{
    OpenPipe pipe(fifo, true);
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

void TestNamedPipe::fifoOfAnotherProcessIsRemovedOnClose()
{
    QCOMPARE(::mkfifo(encoded(fifo).constData(), 0600), 0);
    {
        KovaNamedPipe pipe(fifo, 1, nullptr, true);
        QVERIFY(pipe.open(false));
    }
    QCOMPARE(modeOf(fifo), mode_t(0));
}

void TestNamedPipe::fileThatReplacedTheFifoIsNotRemoved()
{
    OpenPipe pipe(fifo, true);
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
    OpenPipe pipe(fifo, true);
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
    const int before = Holdings::now().descriptors;
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
    QCOMPARE(Holdings::now().descriptors, before);
}

KOVA_TEST(TestNamedPipe)
#include "tst_namedpipe.moc"
