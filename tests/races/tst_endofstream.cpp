#include "Chance.h"
#include "Life.h"

#include "kit/LogCapture.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#define GST_USE_UNSTABLE_API
#include <gst/gst.h>
#include <gst/gsttracer.h>

#include <QtTest/QtTest>

#include <array>
#include <atomic>
#include <memory>

/// A stop as near as possible to the end of the item. Which of the two is told is decided by the
/// client's thread: what it has handled first.
class TestEndOfStream : public QObject
{
    Q_OBJECT

public:
    TestEndOfStream() { allowLongFunctions(); }

private Q_SLOTS:
    void initTestCase();

    void stopMeetsTheEnd_data();
    void stopMeetsTheEnd();
    void stopBehindTheHandledEnd_data();
    void stopBehindTheHandledEnd();

private:
    std::unique_ptr<Item> item;
    Chance chance;
};

// ---- How far the end has come ------------------------------------------------------------------

namespace {

/// On its way from the sink to the client.
enum class End
{
    ToCome,
    OnTheBus, ///< posted by the pipeline, on a thread of GStreamer's
    Handled,  ///< seen by the bus watch, the report is queued
    Told,
};

constexpr std::array<const char*, 4> endNames = {"before the end", "with the end on the bus",
                                                 "with the end handled", "behind the end"};

/// How often a stop met the end in each place.
using Meetings = std::array<int, 4>;

/// Whether some stops came before the end and some behind it, as the client sees it.
bool isOnBothSides(const Meetings& met)
{
    return met[0] + met[1] > 0 && met[2] + met[3] > 0;
}

/// How many pipelines have posted their ends, in this process.
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

/// Watches the end of one life.
class EndWatch
{
public:
    explicit EndWatch(const Life& lifeToWatch) : life(lifeToWatch) {}

    bool isHandled() const
    {
        return log.texts("TRACE").contains(QStringLiteral("reporting playback end due to EOS"));
    }

    End now() const
    {
        return !life.told().isEmpty() ? End::Told
               : isHandled()          ? End::Handled
               : postedEnds > before  ? End::OnTheBus
                                      : End::ToCome;
    }

private:
    const Life& life;
    const LogCapture log;
    const int before = postedEnds;
};

/// A time that closes in on the race: later after each stop that came too early, sooner after each
/// one that came too late, by steps that grow in one direction and shrink at each turn.
class Aim
{
public:
    int microseconds() const { return time; }

    void correct(bool isEarly, Chance& chance)
    {
        step = isEarly == wasEarly ? qMin(step * 2, 30000) : qMax(step / 2, 100);
        time = qMax(0, time + (isEarly ? 1 : -1) * chance.below(step));
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
    item = std::make_unique<Item>(960);
    auto* tracer = static_cast<GstTracer*>(g_object_new(post_tracer_get_type(), nullptr));
    gst_tracing_register_hook(tracer, "element-post-message-pre", G_CALLBACK(messagePosted));
    GST_OBJECT_FLAG_SET(tracer, GST_OBJECT_FLAG_MAY_BE_LEAKED);
    gst_object_unref(tracer); // the hook holds it
}

static void addSources()
{
    QTest::addColumn<Source>("source");
    for (const Source source : allSources) {
        QTest::newRow(nameOf(source)) << source;
    }
}

// ---- Races -------------------------------------------------------------------------------------

void TestEndOfStream::stopMeetsTheEnd_data()
{
    addSources();
}

void TestEndOfStream::stopMeetsTheEnd()
{
    QFETCH(Source, source);
    Meetings met{};
    std::array<Aim, 2> aims; // an end that nobody waits for comes at another time
    const int usual = rounds(100, 1000);
    // A slow machine needs more of them to find the moment.
    for (int round = 0; round < usual || (!isOnBothSides(met) && round < 10 * usual); ++round) {
        const auto loop = chance.coin() ? Chance::EventLoop::Turns : Chance::EventLoop::Stands;
        Aim& aim = aims[loop == Chance::EventLoop::Turns ? 0 : 1];
        const Stage stage(source, *item, "card");
        Life life(stage, Death::Stopped);
        const EndWatch end(life);
        life.start();
        life.reach(Moment::FirstFrame);
        QVERIFY(waitFor([&stage] { return stage.isTaken(); }));
        letPass(aim.microseconds(), loop);

        const End now = end.now();
        QCOMPARE(life.die(), QString());
        QCOMPARE(life.told(), QStringList(now >= End::Handled ? "ended token" : "stopped token"));
        ++met[static_cast<std::size_t>(now)];
        aim.correct(now == End::ToCome, chance);
        QCOMPARE(leakedGstObjects(), QString());
    }
    for (std::size_t i = 0; i < met.size(); ++i) {
        qInfo("%d stops %s", met[i], endNames[i]);
    }
    QVERIFY(isOnBothSides(met));
    QCOMPARE(playWhole(source, *item, "card"), QString());
}

void TestEndOfStream::stopBehindTheHandledEnd_data()
{
    addSources();
}

void TestEndOfStream::stopBehindTheHandledEnd()
{
    QFETCH(Source, source);
    int met = 0;
    for (int round = 0; round < rounds(20, 300); ++round) {
        const Stage stage(source, *item, "card");
        Life life(stage, chance.coin() ? Death::Stopped : Death::StoppedAndDestroyed);
        const EndWatch end(life);
        life.start();
        life.reach(Moment::Last50Ms);
        // The loop turns step by step, so that it can stand between the two.
        QVERIFY(waitFor([&end] { return end.now() >= End::Handled; }));
        met += end.now() == End::Handled ? 1 : 0;
        QCOMPARE(life.die(), QString());
        QVERIFY(!life.told().contains("stopped token"));
        QCOMPARE(leakedGstObjects(), QString());
    }
    qInfo("%d stops %s", met, endNames[static_cast<std::size_t>(End::Handled)]);
    QVERIFY(met > 0);
}

KOVA_TEST(TestEndOfStream)
#include "tst_endofstream.moc"
