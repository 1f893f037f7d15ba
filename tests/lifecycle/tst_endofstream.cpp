#include "Playback.h"

#include "kit/Effort.h"
#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/TestMain.h"

#define GST_USE_UNSTABLE_API
#include <gst/gst.h>
#include <gst/gsttracer.h>

#include <QtTest/QtTest>

#include <array>
#include <atomic>
#include <memory>

/// A stop as near as possible to the end of the item. The client's thread decides which of the two
/// is reported: what it handles first.
class TestEndOfStream : public QObject
{
    Q_OBJECT

public:
    TestEndOfStream() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void stopNearTheEnd_data();
    void stopNearTheEnd();
    void stopAfterTheHandledEnd_data();
    void stopAfterTheHandledEnd();

private:
    std::unique_ptr<Item> item;
    QRandomGenerator random = randomGenerator();
};

// ---- How far the end has come ------------------------------------------------------------------

namespace {

/// On its way from the sink to the client.
enum class End
{
    Expected,
    OnTheBus, ///< posted by the pipeline, on a thread of GStreamer's
    Handled,  ///< by the bus watch; the report is queued
    Reported,
};

constexpr std::array endNames{"before the end", "with the end on the bus", "with the end handled",
                              "after the end"};

/// How many stops found the end in each place.
using Counts = std::array<int, endNames.size()>;

/// Whether some stops came before the end and some after it, as the client sees it.
bool isOnBothSides(const Counts& counts)
{
    return counts[0] + counts[1] > 0 && counts[2] + counts[3] > 0;
}

/// How many pipelines of this process have posted their ends.
std::atomic<int> postedEnds{0};

void messagePosted(GObject* /*tracer*/, GstClockTime /*time*/, GstElement* element,
                   GstMessage* message)
{
    if (GST_IS_PIPELINE(element) && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        ++postedEnds;
    }
}

struct PostTracer
{
    GstTracer parent;
};

struct PostTracerClass
{
    GstTracerClass parent;
};

G_DEFINE_TYPE(PostTracer, post_tracer, GST_TYPE_TRACER)

void post_tracer_class_init(PostTracerClass*)
{
}

void post_tracer_init(PostTracer*)
{
}

/// Watches the end of one playback.
class EndWatch
{
public:
    explicit EndWatch(const Playback& playbackToWatch) : playback(playbackToWatch) {}

    End now() const
    {
        return !playback.outcomes().isEmpty() ? End::Reported
               : isHandled()                  ? End::Handled
               : postedEnds > before          ? End::OnTheBus
                                              : End::Expected;
    }

private:
    bool isHandled() const
    {
        return log.texts("TRACE").contains(QStringLiteral("reporting playback end due to EOS"));
    }

    const Playback& playback;
    const LogCapture log;
    const int before = postedEnds;
};

/// A time that approaches the race: longer after each stop that came too early, shorter after each
/// one that came too late, by steps that grow in one direction and shrink at each reversal.
class ApproachingTime
{
public:
    int microseconds() const { return time; }

    void correct(bool isEarly, QRandomGenerator& random)
    {
        step = isEarly == wasEarly ? qMin(step * 2, 30000) : qMax(step / 2, 100);
        time = qMax(0, time + (isEarly ? 1 : -1) * random.bounded(step));
        wasEarly = isEarly;
    }

private:
    int time = 0;
    int step = 5000;
    bool wasEarly = true;
};

} // namespace

void TestEndOfStream::initTestCase()
{
    item = std::make_unique<Item>(media::noise(960));
    auto* tracer = static_cast<GstTracer*>(g_object_new(post_tracer_get_type(), nullptr));
    gst_tracing_register_hook(tracer, "element-post-message-pre", G_CALLBACK(messagePosted));
    GST_OBJECT_FLAG_SET(tracer, GST_OBJECT_FLAG_MAY_BE_LEAKED);
    gst_object_unref(tracer); // the hook holds it
}

static void addSources()
{
    QTest::addColumn<const Source*>("source");
    for (const Source* source : Source::all()) {
        QTest::newRow(source->name) << source;
    }
}

// ---- Races -------------------------------------------------------------------------------------

void TestEndOfStream::stopNearTheEnd_data()
{
    addSources();
}

void TestEndOfStream::stopNearTheEnd()
{
    QFETCH(const Source*, source);
    Counts counts{};
    std::array<ApproachingTime, 2> times; // the end comes later without an event loop
    const int usual = repetitions(100, 1000);
    // A slow machine needs more of them to find the moment.
    for (int i = 0; i < usual || (!isOnBothSides(counts) && i < 10 * usual); ++i) {
        const bool runsEventLoop = random.bounded(2) == 0;
        ApproachingTime& time = times[runsEventLoop ? 0 : 1];
        Playback playback(*source, *item, Teardown::Stopped);
        const EndWatch end(playback);
        QVERIFY(playback.startAndFeed());
        QVERIFY(playback.reach(Progress::FirstFrame));
        QVERIFY(waitFor([&playback] { return playback.player.isFed(); }));
        letPass(time.microseconds(), runsEventLoop);

        const End now = end.now();
        QCOMPARE(playback.tearDown(), QString());
        QCOMPARE(playback.outcomes(),
                 QStringList(now >= End::Handled ? "ended token" : "stopped token"));
        ++counts[static_cast<std::size_t>(now)];
        time.correct(now == End::Expected, random);
        QCOMPARE(leakedGstObjects(), QString());
    }
    for (std::size_t i = 0; i < counts.size(); ++i) {
        qInfo("%d stops %s", counts[i], endNames[i]);
    }
    QVERIFY(isOnBothSides(counts));
    QCOMPARE(problemOfWholePlayback(*source, *item), QString());
}

void TestEndOfStream::stopAfterTheHandledEnd_data()
{
    addSources();
}

void TestEndOfStream::stopAfterTheHandledEnd()
{
    QFETCH(const Source*, source);
    int handled = 0;
    for (int i = 0; i < repetitions(20, 300); ++i) {
        Playback playback(*source, *item,
                          random.bounded(2) == 0 ? Teardown::Stopped : Teardown::StoppedAndDeleted);
        const EndWatch end(playback);
        QVERIFY(playback.startAndFeed());
        QVERIFY(playback.reach(Progress::Last50Ms));
        // Ends between the two whenever one pass of the event loop delivers the first only.
        QVERIFY(waitFor([&end] { return end.now() >= End::Handled; }));
        handled += end.now() == End::Handled ? 1 : 0;
        QCOMPARE(playback.tearDown(), QString());
        QVERIFY(!playback.outcomes().contains("stopped token"));
        QCOMPARE(leakedGstObjects(), QString());
    }
    qInfo("%d stops %s", handled, endNames[static_cast<std::size_t>(End::Handled)]);
    QVERIFY(handled > 0);
}

KOVA_TEST(TestEndOfStream)
#include "tst_endofstream.moc"
