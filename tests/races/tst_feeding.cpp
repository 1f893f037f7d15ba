#include "Chance.h"
#include "Life.h"

#include "kit/PipeWriter.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <gst/gst.h>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <memory>
#include <thread>

/// Players that go down while their source asks for data.
class TestFeeding : public QObject
{
    Q_OBJECT

public:
    TestFeeding() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void deathWhileMemoryIsFed_data();
    void deathWhileMemoryIsFed();
    void arrayThatChangesWhileItIsTaken_data();
    void arrayThatChangesWhileItIsTaken();

    void deathWithACallOnItsWay_data();
    void deathWithACallOnItsWay();
    void deathWhileTheWriterFinishes_data();
    void deathWhileTheWriterFinishes();
    void deathBehindAKilledWriter_data();
    void deathBehindAKilledWriter();

private:
    std::unique_ptr<Item> item;
    Chance chance;
};

namespace {

/// Watches one signal of every appsrc. The streaming thread that emits it is kept busy in the
/// middle of it for a while. No other order between the threads comes of it, which could hide what
/// a sanitizer is to find.
class Emissions
{
public:
    /// @param signal  its name
    /// @param keepUs  for how many microseconds the thread is kept
    explicit Emissions(const char* signal, int keepUs = 0) : keep(keepUs)
    {
        GstElement* source = gst_element_factory_make("appsrc", nullptr);
        id = g_signal_lookup(signal, G_OBJECT_TYPE(source));
        gst_object_unref(gst_object_ref_sink(source));
        hook = g_signal_add_emission_hook(id, 0, emitted, this, nullptr);
    }
    ~Emissions() { g_signal_remove_emission_hook(id, hook); }
    Emissions(const Emissions&) = delete;
    Emissions& operator=(const Emissions&) = delete;

    int count() const { return counted.load(std::memory_order_relaxed); }

    /// Whether a thread is in the middle of it now.
    bool isGoingOn() const { return goingOn.load(std::memory_order_relaxed); }

    /// Waits without an event loop. @return whether so many came in time
    bool waitFor(int number) const
    {
        const QDeadlineTimer deadline(patience);
        while (count() < number && !deadline.hasExpired()) {
            std::this_thread::yield();
        }
        return count() >= number;
    }

private:
    static gboolean emitted(GSignalInvocationHint*, guint, const GValue*, gpointer data)
    {
        auto* self = static_cast<Emissions*>(data);
        self->goingOn.store(true, std::memory_order_relaxed);
        self->counted.fetch_add(1, std::memory_order_relaxed);
        letPass(self->keep, Chance::EventLoop::Stands);
        self->goingOn.store(false, std::memory_order_relaxed);
        return TRUE;
    }

    const int keep;
    std::atomic<int> counted{0};
    std::atomic<bool> goingOn{false};
    guint id = 0;
    gulong hook = 0;
};

} // namespace
Q_DECLARE_METATYPE(std::function<void(QByteArray&)>)

void TestFeeding::initTestCase()
{
    item = std::make_unique<Item>(12000);
}

// ---- Memory ------------------------------------------------------------------------------------

void TestFeeding::deathWhileMemoryIsFed_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<Death>("death");
    for (const char* signal : {"seek-data", "need-data", "push-buffer"}) {
        for (const Death death : allDeaths) {
            QTest::addRow("%s, %s", signal, nameOf(death)) << QByteArray(signal) << death;
        }
    }
}

void TestFeeding::deathWhileMemoryIsFed()
{
    QFETCH(QByteArray, signal);
    QFETCH(Death, death);
    const int keepUs = 200;
    int most = 0;
    {
        const Emissions all(signal.constData());
        QCOMPARE(playWhole(Source::Data, *item, "card"), QString());
        most = all.count();
    }
    QVERIFY(most > 0);
    int amid = 0;
    const int lives = rounds(12, 200);
    for (int i = 0; i < lives; ++i) {
        const Emissions emissions(signal.constData(), keepUs);
        const Stage stage(Source::Data, *item, "card");
        Life life(stage, death);
        life.start();
        QVERIFY(emissions.waitFor(1 + chance.below(most)));
        chance.linger(2 * keepUs, Chance::EventLoop::Stands);
        amid += emissions.isGoingOn() ? 1 : 0;
        QCOMPARE(life.die(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    qInfo("%d of %d died in the middle of it", amid, lives);
    QCOMPARE(playWhole(Source::Data, *item, "card"), QString());
}

void TestFeeding::arrayThatChangesWhileItIsTaken_data()
{
    using Change = std::function<void(QByteArray&)>;
    QTest::addColumn<Change>("change");
    QTest::newRow("overwritten") << Change([](QByteArray& bytes) { bytes.fill('x'); });
    QTest::newRow("longer") << Change([](QByteArray& bytes) { bytes.append("more"); });
    QTest::newRow("shorter") << Change([](QByteArray& bytes) { bytes.resize(1); });
    QTest::newRow("dropped") << Change([](QByteArray& bytes) { bytes = QByteArray(); });
}

void TestFeeding::arrayThatChangesWhileItIsTaken()
{
    QFETCH(std::function<void(QByteArray&)>, change);
    const Item shortItem(960);
    // What stands behind the sound is never played; to copy it takes a while.
    const QByteArray tail(2 << 20, 't');
    for (int i = 0; i < rounds(20, 200); ++i) {
        const Emissions requests("need-data");
        const Stage stage(Source::Data, shortItem, "card", VirtualCard::Settings());
        QByteArray bytes = shortItem.wav + tail;
        PlayerProbe probe(
            new DataSimplePlayer(bytes, QStringLiteral("token"), stage.card.device()));
        QVERIFY(probe->startPlayback());
        QVERIFY(requests.waitFor(1));
        chance.linger(1000, Chance::EventLoop::Stands);
        change(bytes);
        QCOMPARE(probe.finish(), QStringList("ended token"));
        QCOMPARE(stage.difference(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
}

// ---- Pipe --------------------------------------------------------------------------------------

namespace {

/// Counts the queued calls that an object gets.
class Deliveries : public QObject
{
public:
    explicit Deliveries(QObject* receiver) { receiver->installEventFilter(this); }

    int count = 0;

protected:
    bool eventFilter(QObject* /*receiver*/, QEvent* event) override
    {
        count += event->type() == QEvent::MetaCall ? 1 : 0;
        return false;
    }
};

/// The engine of a player is its only child.
QObject* engineOf(const Life& life)
{
    return life.player->children().constFirst();
}

} // namespace

static void addDeaths()
{
    QTest::addColumn<Death>("death");
    for (const Death death : allDeaths) {
        QTest::newRow(nameOf(death)) << death;
    }
}

void TestFeeding::deathWithACallOnItsWay_data()
{
    addDeaths();
}

void TestFeeding::deathWithACallOnItsWay()
{
    QFETCH(Death, death);
    int waiting = 0;
    int lives = 0;
    const int usual = rounds(20, 300);
    // On a busy machine more calls arrive before the life can come to its end.
    for (; lives < usual || (waiting == 0 && lives < 10 * usual); ++lives) {
        const Emissions requests("need-data");
        const Stage stage(Source::Stream, *item, "card");
        Life life(stage, death);
        Deliveries deliveries(engineOf(life));
        const int wanted = 1 + chance.below(8);
        life.start();
        const auto isWaiting = [&] {
            return requests.count() >= wanted && requests.count() > deliveries.count;
        };
        QVERIFY(waitFor([&] { return isWaiting() || life.now() == Moment::Ended; }));
        chance.linger(200, Chance::EventLoop::Stands);
        waiting += isWaiting() ? 1 : 0;
        QCOMPARE(life.die(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    qInfo("%d of %d died with a call on its way", waiting, lives);
    QVERIFY(waiting > 0);
    QCOMPARE(playWhole(Source::Stream, *item, "card"), QString());
}

namespace {

/// Writes bytes into a FIFO from a thread of its own, in pieces, until all is written or nobody
/// reads any more, and closes it.
class ThreadWriter
{
public:
    ThreadWriter(const QString& fifo, const QByteArray& bytes, int piece)
        : thread([=] { write(fifo, bytes, piece); })
    {
    }
    ~ThreadWriter() { thread.join(); }
    ThreadWriter(const ThreadWriter&) = delete;
    ThreadWriter& operator=(const ThreadWriter&) = delete;

private:
    static void write(const QString& fifo, const QByteArray& bytes, int piece)
    {
        // A reader that goes is an error of write() then.
        sigset_t broken;
        sigemptyset(&broken);
        sigaddset(&broken, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &broken, nullptr);
        const int writer =
            ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        for (int done = 0; done < bytes.size(); done += piece) {
            const QByteArray next = bytes.mid(done, piece);
            if (::write(writer, next.constData(), static_cast<std::size_t>(next.size())) < 0) {
                break;
            }
        }
        ::close(writer);
    }

    std::thread thread;
};

} // namespace

void TestFeeding::deathWhileTheWriterFinishes_data()
{
    addDeaths();
}

void TestFeeding::deathWhileTheWriterFinishes()
{
    QFETCH(Death, death);
    for (int i = 0; i < rounds(20, 300); ++i) {
        const Emissions requests("need-data");
        const Stage stage(Source::Stream, *item, "card");
        Life life(stage, death);
        QVERIFY(life.player->startPlayback());
        const ThreadWriter writer(stage.fifo, item->wav, 1 + chance.below(8192));
        const int wanted = 2 + chance.below(8);
        QVERIFY(waitFor([&] { return requests.count() >= wanted || life.now() == Moment::Ended; }));
        chance.linger(500);
        QCOMPARE(life.die(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    QCOMPARE(playWhole(Source::Stream, *item, "card"), QString());
}

void TestFeeding::deathBehindAKilledWriter_data()
{
    addDeaths();
}

void TestFeeding::deathBehindAKilledWriter()
{
    QFETCH(Death, death);
    // More than what everything on its way holds: the writer is never done.
    const QByteArray endless = item->wav + QByteArray(1 << 20, 'x');
    for (int i = 0; i < rounds(6, 100); ++i) {
        const Emissions requests("need-data");
        const Stage stage(Source::Stream, *item, "card");
        Life life(stage, death);
        QVERIFY(life.player->startPlayback());
        PipeWriter writer(stage.fifo, endless);
        QVERIFY(waitFor([&] { return requests.count() >= 4 || life.now() == Moment::Ended; }));
        QVERIFY(writer.kill());
        chance.linger(500);
        QCOMPARE(life.die(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    QCOMPARE(playWhole(Source::Stream, *item, "card"), QString());
}

KOVA_TEST(TestFeeding)
#include "tst_feeding.moc"
