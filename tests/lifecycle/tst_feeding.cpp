#include "Playback.h"

#include "kit/Effort.h"
#include "kit/GstLeaks.h"
#include "kit/TestMain.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <QtCore/QDeadlineTimer>
#include <QtTest/QtTest>

#include <gst/gst.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

/// Players that are torn down while their source asks for data.
class TestFeeding : public QObject
{
    Q_OBJECT

public:
    TestFeeding() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void teardownDuringASignalOfTheSource_data();
    void teardownDuringASignalOfTheSource();
    void arrayThatChangesWhileItIsPlayed_data();
    void arrayThatChangesWhileItIsPlayed();

    void teardownBeforeAQueuedCallIsDelivered_data() { addTeardowns(); }
    void teardownBeforeAQueuedCallIsDelivered();
    void teardownWhileTheWriterFinishes_data() { addTeardowns(); }
    void teardownWhileTheWriterFinishes();
    void teardownAfterTheWriterWasKilled_data() { addTeardowns(); }
    void teardownAfterTheWriterWasKilled();

private:
    std::unique_ptr<Item> item;
    QRandomGenerator random = randomGenerator();
};

namespace {

/// Watches one signal of every appsrc, and keeps the streaming thread that emits it busy for a
/// while. It adds no other order between the threads, which could hide races from a sanitizer.
class SignalWatch
{
public:
    /// @param signal  its name
    /// @param busyUs  for how many microseconds the thread is kept busy
    explicit SignalWatch(const char* signal, int busyUs = 0) : busy(busyUs)
    {
        GstElement* source = gst_element_factory_make("appsrc", nullptr);
        id = g_signal_lookup(signal, G_OBJECT_TYPE(source));
        gst_object_unref(gst_object_ref_sink(source));
        hook = g_signal_add_emission_hook(id, 0, emitted, this, nullptr);
    }
    ~SignalWatch() { g_signal_remove_emission_hook(id, hook); }
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    int count() const { return emissions.load(std::memory_order_relaxed); }

    /// Whether a thread is emitting it now.
    bool isEmitting() const { return emitting.load(std::memory_order_relaxed); }

    /// Waits without an event loop. @return whether there were so many emissions in time
    bool waitForCount(int number) const
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
        auto* self = static_cast<SignalWatch*>(data);
        self->emitting.store(true, std::memory_order_relaxed);
        self->emissions.fetch_add(1, std::memory_order_relaxed);
        letPass(self->busy, false);
        self->emitting.store(false, std::memory_order_relaxed);
        return TRUE;
    }

    const int busy;
    std::atomic<int> emissions{0};
    std::atomic<bool> emitting{false};
    guint id = 0;
    gulong hook = 0;
};

using Change = std::function<void(QByteArray&)>;

} // namespace
Q_DECLARE_METATYPE(Change)

void TestFeeding::initTestCase()
{
    item = std::make_unique<Item>(media::noise(12000));
}

// ---- Memory ------------------------------------------------------------------------------------

void TestFeeding::teardownDuringASignalOfTheSource_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<Teardown>("teardown");
    for (const char* signal : {"seek-data", "need-data", "push-buffer"}) {
        for (const Teardown teardown : allTeardowns) {
            QTest::addRow("%s, %s", signal, nameOf(teardown)) << QByteArray(signal) << teardown;
        }
    }
}

void TestFeeding::teardownDuringASignalOfTheSource()
{
    QFETCH(QByteArray, signal);
    QFETCH(Teardown, teardown);
    const int busyUs = 200;
    int most = 0;
    {
        const SignalWatch all(signal.constData());
        QCOMPARE(problemOfWholePlayback(Source::data(), *item), QString());
        most = all.count();
    }
    QVERIFY(most > 0);
    int during = 0;
    const int count = repetitions(12, 200);
    for (int i = 0; i < count; ++i) {
        const SignalWatch watch(signal.constData(), busyUs);
        Playback playback(Source::data(), *item, teardown);
        QVERIFY(playback.startAndFeed());
        QVERIFY(watch.waitForCount(1 + random.bounded(most)));
        letRandomTimePass(random, 2 * busyUs, false);
        during += watch.isEmitting() ? 1 : 0;
        QCOMPARE(playback.tearDown(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    qInfo("%d of %d during the signal", during, count);
    QCOMPARE(problemOfWholePlayback(Source::data(), *item), QString());
}

void TestFeeding::arrayThatChangesWhileItIsPlayed_data()
{
    QTest::addColumn<Change>("change");
    QTest::newRow("overwritten") << Change([](QByteArray& bytes) { bytes.fill('x'); });
    QTest::newRow("longer") << Change([](QByteArray& bytes) { bytes.append("more"); });
    QTest::newRow("shorter") << Change([](QByteArray& bytes) { bytes.resize(1); });
    QTest::newRow("dropped") << Change([](QByteArray& bytes) { bytes = QByteArray(); });
}

void TestFeeding::arrayThatChangesWhileItIsPlayed()
{
    QFETCH(Change, change);
    const media::Pcm sound = media::noise(960);
    // What follows the sound is never played. Copying it takes a while.
    const QByteArray tail(2 << 20, 't');
    for (int i = 0; i < repetitions(20, 200); ++i) {
        const SignalWatch requests("need-data");
        const VirtualCard card("card");
        QByteArray bytes = media::wavBytes(sound) + tail;
        PlayerProbe probe(new DataSimplePlayer(bytes, QStringLiteral("token"), card.device()));
        QVERIFY(probe->startPlayback());
        QVERIFY(requests.waitForCount(1));
        letRandomTimePass(random, 1000, false);
        change(bytes);
        QCOMPARE(probe.finish(), QStringList("ended token"));
        QCOMPARE(media::difference(card.samples(), sound.samples), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
}

// ---- FIFO --------------------------------------------------------------------------------------

namespace {

/// Counts the queued calls that an object gets.
class QueuedCalls : public QObject
{
public:
    explicit QueuedCalls(QObject* receiver) { receiver->installEventFilter(this); }

    int count = 0;

protected:
    bool eventFilter(QObject* /*receiver*/, QEvent* event) override
    {
        count += event->type() == QEvent::MetaCall ? 1 : 0;
        return false;
    }
};

/// Writes bytes into a FIFO from a thread of its own, in pieces, until everything is written or the
/// reader has closed its end; then closes the FIFO.
class ThreadWriter
{
public:
    ThreadWriter(const QString& fifo, const QByteArray& bytes, int piece)
        : thread([=] {
              const FifoWriter writer(fifo);
              for (int done = 0; done < bytes.size(); done += piece) {
                  if (writer.writeSome(bytes.mid(done, piece)) < 0) {
                      return;
                  }
              }
          })
    {
    }
    ~ThreadWriter() { thread.join(); }
    ThreadWriter(const ThreadWriter&) = delete;
    ThreadWriter& operator=(const ThreadWriter&) = delete;

private:
    std::thread thread;
};

} // namespace

void TestFeeding::teardownBeforeAQueuedCallIsDelivered()
{
    QFETCH(Teardown, teardown);
    int queued = 0;
    int count = 0;
    const int usual = repetitions(20, 300);
    // On a busy machine more calls are delivered before the teardown.
    for (; count < usual || (queued == 0 && count < 10 * usual); ++count) {
        const SignalWatch requests("need-data");
        Playback playback(Source::stream(), *item, teardown);
        QueuedCalls calls(playback.front->children().constFirst());
        const int wanted = 1 + random.bounded(8);
        QVERIFY(playback.startAndFeed());
        const auto isQueued = [&] {
            return requests.count() >= wanted && requests.count() > calls.count;
        };
        QVERIFY(waitFor([&] { return isQueued() || playback.isFinished(); }));
        letRandomTimePass(random, 200, false);
        queued += isQueued() ? 1 : 0;
        QCOMPARE(playback.tearDown(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    qInfo("%d of %d with a queued call", queued, count);
    QVERIFY(queued > 0);
    QCOMPARE(problemOfWholePlayback(Source::stream(), *item), QString());
}

void TestFeeding::teardownWhileTheWriterFinishes()
{
    QFETCH(Teardown, teardown);
    for (int i = 0; i < repetitions(20, 300); ++i) {
        const SignalWatch requests("need-data");
        Playback playback(Source::stream(), *item, teardown);
        QVERIFY(playback.start());
        const ThreadWriter writer(playback.player.item.fifo, item->bytes, 1 + random.bounded(8192));
        const int wanted = 2 + random.bounded(8);
        QVERIFY(waitFor([&] { return requests.count() >= wanted || playback.isFinished(); }));
        letRandomTimePass(random, 500);
        QCOMPARE(playback.tearDown(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    QCOMPARE(problemOfWholePlayback(Source::stream(), *item), QString());
}

void TestFeeding::teardownAfterTheWriterWasKilled()
{
    QFETCH(Teardown, teardown);
    // More than the FIFO and the pipeline hold: the writer never finishes.
    const Item endless(item->bytes + QByteArray(1 << 20, 'x'));
    for (int i = 0; i < repetitions(6, 100); ++i) {
        const SignalWatch requests("need-data");
        Playback playback(Source::stream(), endless, teardown);
        QVERIFY(playback.start());
        PipeWriter writer(playback.player.item.fifo, endless.bytes);
        QVERIFY(waitFor([&] { return requests.count() >= 4 || playback.isFinished(); }));
        QVERIFY(writer.kill());
        letRandomTimePass(random, 500);
        QCOMPARE(playback.tearDown(), QString());
        QCOMPARE(leakedGstObjects(), QString());
    }
    QCOMPARE(problemOfWholePlayback(Source::stream(), *item), QString());
}

KOVA_TEST(TestFeeding)
#include "tst_feeding.moc"
