#include "unit/PipeTest.h"

#include "kit/PipeWriter.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <core/kova.h>

#include <QtCore/QPointer>
#include <QtCore/QSocketNotifier>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace {

/// Bytes without a period that a block size is a multiple of, so that a wrong order shows.
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

} // namespace

/// Reading from a named pipe: blocking, non-blocking, and through its notifier.
class TestPipeReading : public PipeTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { WhileAsleep::handleSignals(); }
    void init() { prepare(); }
    void cleanup() { QCOMPARE(finish(), QStringList()); }

    void openWaitsForAWriter();
    void openWaitsThroughSignals();
    void readWithoutAWriterReturnsZero();
    void readReturnsAtOnceWhenAWriterIsSilent();
    void readWaitsForASlowWriter();
    void readWaitsThroughSignals();
    void nonBlockCanBeSwitchedWhileOpen();
    void readOfAClosedPipeFails();
    void readWithoutABufferFails();
    void oneByteMayBeRead();
    void notifierIsDisabledUntilEnabled();
    void allBytesArriveInOrder_data();
    void allBytesArriveInOrder();
    void needsNoProcFileSystem();
    void writersFollowOneAnother();
    void killedWriterEndsTheData();
    void disabledNotifierLeavesTheDataInThePipe();
    void lateWriterServesTheNextReader();
    void noActivationAfterClose();
    void closeInsideTheSlot();
    void deleteInsideTheSlot();
    void closedPipeOpensAgain();
};

void TestPipeReading::openWaitsForAWriter()
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

void TestPipeReading::openWaitsThroughSignals()
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

void TestPipeReading::readWithoutAWriterReturnsZero()
{
    OpenPipe pipe(fifo);
    QCOMPARE(readSome(pipe), 0);
    pipe.setNonBlock(true);
    QCOMPARE(readSome(pipe), 0);
}

void TestPipeReading::readReturnsAtOnceWhenAWriterIsSilent()
{
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    PipeWriter writer(fifo, "", {1, 0, true});
    QVERIFY(writer.waitForOpened());
    QCOMPARE(readSome(pipe), -EAGAIN);
    QVERIFY(writer.close());
    QCOMPARE(readSome(pipe), 0);
    QCOMPARE(log->lines(), QStringList());
}

void TestPipeReading::readWaitsForASlowWriter()
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

void TestPipeReading::readWaitsThroughSignals()
{
    OpenPipe pipe(fifo);
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

void TestPipeReading::nonBlockCanBeSwitchedWhileOpen()
{
    OpenPipe pipe(fifo);
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

void TestPipeReading::readOfAClosedPipeFails()
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

void TestPipeReading::readWithoutABufferFails()
{
    OpenPipe pipe(fifo);
    const QByteArray block("untouched");
    QCOMPARE(pipe.read(block.constData(), 0), -EINVAL);
    QCOMPARE(pipe.read(block.constData(), -1), -EINVAL);
    QCOMPARE(pipe.read(nullptr, 16), -EINVAL);
    const QString line = "Failed to read named pipe, there is no buffer, id: 1 name: " + fifo;
    QCOMPARE(log->texts("ERROR"), (QStringList{line, line, line}));
    QCOMPARE(block, QByteArray("untouched"));
}

void TestPipeReading::oneByteMayBeRead()
{
    OpenPipe pipe(fifo);
    const FifoWriter writer(fifo);
    writer.write("ab");
    const QByteArray block("..");
    QCOMPARE(pipe.read(block.constData(), 1), 1);
    QCOMPARE(block, QByteArray("a."));
}

void TestPipeReading::notifierIsDisabledUntilEnabled()
{
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    QVERIFY(!pipe.readNotifier()->isEnabled());
    PipeWriter writer(fifo, "data");
    QVERIFY(writer.waitForFinished());
    QSignalSpy spy(pipe.readNotifier(), &QSocketNotifier::activated);
    QCoreApplication::processEvents();
    QCOMPARE(spy.count(), 0);
    spy.clear();
    Reader reader(&pipe);
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, patience);
    QCOMPARE(reader.bytes, QByteArray("data"));
}

void TestPipeReading::allBytesArriveInOrder_data()
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

void TestPipeReading::allBytesArriveInOrder()
{
    QFETCH(int, size);
    QFETCH(int, chunk);
    QFETCH(int, pauseMs);
    const QByteArray bytes = pattern(size);
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    const int descriptor = static_cast<int>(pipe.readNotifier()->socket());
    Reader reader(&pipe);
    PipeWriter writer(fifo, bytes, {chunk, pauseMs, false});
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, patience);
    QCOMPARE(reader.result, 0);
    QCOMPARE(reader.lastDescriptor, descriptor);
    QVERIFY(reader.bytes == bytes);
    QVERIFY(writer.waitForFinished());
    QCOMPARE(log->lines(), QStringList());
}

void TestPipeReading::needsNoProcFileSystem()
{
    QCOMPARE(TestProcess::runWithoutProc({"allBytesArriveInOrder"}), QString());
}

void TestPipeReading::writersFollowOneAnother()
{
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    QByteArray expected;
    Reader reader(&pipe);
    reader.onEnd = [&] { pipe.readNotifier()->setEnabled(false); };
    for (int i = 0; i < 3; ++i) {
        const QByteArray bytes = pattern(10000, i);
        expected += bytes;
        reader.ended = false;
        PipeWriter writer(fifo, bytes);
        QVERIFY(writer.waitForOpened()); // else the pipe still reports the end of the writer before
        pipe.readNotifier()->setEnabled(true);
        QTRY_VERIFY_WITH_TIMEOUT(reader.ended, patience);
        QCOMPARE(reader.result, 0);
        QVERIFY(writer.waitForFinished());
    }
    QVERIFY(reader.bytes == expected);
}

void TestPipeReading::killedWriterEndsTheData()
{
    const QByteArray bytes = pattern(5000);
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    Reader reader(&pipe);
    PipeWriter writer(fifo, bytes, {bytes.size(), 0, true});
    QTRY_COMPARE_WITH_TIMEOUT(reader.bytes.size(), bytes.size(), patience);
    QVERIFY(!reader.ended);
    QVERIFY(writer.kill());
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, patience);
    QCOMPARE(reader.result, 0);
    QVERIFY(reader.bytes == bytes);
}

void TestPipeReading::disabledNotifierLeavesTheDataInThePipe()
{
    const QByteArray bytes = pattern(30000);
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    Reader reader(&pipe);
    reader.onBlock = [&] { pipe.readNotifier()->setEnabled(false); };
    PipeWriter writer(fifo, bytes, {bytes.size(), 0, false});
    while (!reader.ended) {
        const int before = reader.bytes.size();
        pipe.readNotifier()->setEnabled(true);
        QTRY_VERIFY_WITH_TIMEOUT(reader.ended || reader.bytes.size() > before, patience);
        QVERIFY(reader.bytes.size() - before <= 4096); // one block for each time it was enabled
        const int activations = reader.activations;
        QCoreApplication::processEvents();
        QCOMPARE(reader.activations, activations);
    }
    QVERIFY(reader.bytes == bytes);
}

void TestPipeReading::lateWriterServesTheNextReader()
{
    {
        OpenPipe pipe(fifo);
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
    QTRY_VERIFY_WITH_TIMEOUT(reader.ended, patience);
    QCOMPARE(reader.bytes, QByteArray("late"));
    QVERIFY(writer.waitForFinished());
}

void TestPipeReading::noActivationAfterClose()
{
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
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

void TestPipeReading::closeInsideTheSlot()
{
    OpenPipe pipe(fifo);
    pipe.setNonBlock(true);
    const QPointer<QSocketNotifier> notifier = pipe.readNotifier();
    Reader reader(&pipe);
    bool aliveAfterClose = false;
    reader.onBlock = [&] {
        pipe.close();
        aliveAfterClose = !notifier.isNull();
    };
    PipeWriter writer(fifo, "data", {4, 0, true});
    QTRY_COMPARE_WITH_TIMEOUT(reader.activations, 1, patience);
    QVERIFY(aliveAfterClose);
    QVERIFY(writer.waitForWritten());
    QVERIFY(writer.close());
    QCoreApplication::processEvents();
    QCOMPARE(reader.activations, 1);
}

void TestPipeReading::deleteInsideTheSlot()
{
    auto* pipe = new KovaNamedPipe(fifo, 1, nullptr, false);
    pipe->setNonBlock(true);
    QVERIFY(pipe->create());
    QVERIFY(pipe->open(false));
    Reader reader(pipe);
    reader.onBlock = [&] { delete pipe; };
    PipeWriter writer(fifo, "data");
    QTRY_VERIFY_WITH_TIMEOUT(reader.source.isNull(), patience);
    QCoreApplication::processEvents();
    QCOMPARE(reader.activations, 1);
}

void TestPipeReading::closedPipeOpensAgain()
{
    KovaNamedPipe pipe(fifo, 1, nullptr, false);
    pipe.setNonBlock(true);
    QVERIFY(pipe.create());
    for (int i = 0; i < 2; ++i) {
        QVERIFY(pipe.open(false));
        Reader reader(&pipe);
        PipeWriter writer(fifo, "data");
        QTRY_VERIFY_WITH_TIMEOUT(reader.ended, patience);
        QCOMPARE(reader.bytes, QByteArray("data"));
    }
}

KOVA_TEST(TestPipeReading)
#include "tst_pipereading.moc"
