#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/TestMain.h"

#include <QtTest/QtTest>

namespace {

// An element that never prerolls, neither on the way up nor down, as some live sources do.
struct LiveElement
{
    GstElement parent;
};

struct LiveElementClass
{
    GstElementClass parent;
};

G_DEFINE_TYPE(LiveElement, live_element, GST_TYPE_ELEMENT)

void live_element_class_init(LiveElementClass* elementClass)
{
    GST_ELEMENT_CLASS(elementClass)->change_state = [](GstElement* element,
                                                       GstStateChange transition) {
        GST_ELEMENT_CLASS(live_element_parent_class)->change_state(element, transition);
        return GST_STATE_TRANSITION_NEXT(transition) >= GST_STATE_PAUSED
                   ? GST_STATE_CHANGE_NO_PREROLL
                   : GST_STATE_CHANGE_SUCCESS;
    };
}

void live_element_init(LiveElement*)
{
}

bool addLiveElement(GstElement* bin)
{
    return gst_bin_add(GST_BIN(bin), GST_ELEMENT(g_object_new(live_element_get_type(), nullptr)));
}

/// What the last state change of a pipeline came to.
GstStateChangeReturn lastStateChange(GstElement* pipeline)
{
    return gst_element_get_state(pipeline, nullptr, nullptr, 0);
}

} // namespace

/// Pausing, stopping and releasing a pipeline in each state, and each failure.
class TestEngineControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void startWithoutPrerollIsASuccess();
    void pauseHaltsThePipelineAndReportsNothing();
    void pauseThenStartResumes();
    void pauseBeforeStartFails();
    void pauseOfAHalfBuiltPipelineFails();
    void pauseFailsWhenPausedIsRefused();
    void pauseWithoutPrerollIsASuccess();
    void stopReportsOnceAndKeepsThePipeline();
    void startAfterStopPlaysAgainOnTheSamePipeline();
    void stopBeforeStartReportsNotInitialized();
    void stopOfAHalfBuiltPipelineReportsNotInitialized();
    void stopFailsWhenNullIsRefused();
    void stopAfterEndIsTrueAndReportsNothingMore();
    void pauseAfterStopIsAccepted();
    void restartIsRefusedByTheBase();
    void releaseSetsNullAndDropsThePipeline();
    void releaseGoesOnWhenNullIsRefused();
    void releaseWithoutPipelineOnlyLogs();
    void pipelineInitializedNeedsBothFlagAndPipeline();
    void operationsAfterReleaseFailUntilTheNextStart();
};

void TestEngineControl::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(leakedGstObjects(), QString());
}

void TestEngineControl::startWithoutPrerollIsASuccess()
{
    EngineFixture fixture;
    fixture.engine.build = addLiveElement;
    fixture.log.clear();
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(lastStateChange(fixture.engine.pipeline), GST_STATE_CHANGE_NO_PREROLL);
    QCOMPARE(fixture.log.texts("ERROR"), QStringList());
    QCOMPARE(fixture.log.lines().last(), leaveLine("INFO", "SimplePlayerImpl::startPlayback"));
}

void TestEngineControl::pauseHaltsThePipelineAndReportsNothing()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
    fixture.log.clear();
    QVERIFY(fixture.player.pausePlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::pausePlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          leaveLine("INFO", "SimplePlayerImpl::pausePlayback")}));
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PAUSED);
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineControl::pauseThenStartResumes()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
    fixture.player.pausePlayback();
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PAUSED);
    const auto stateChanges = [&fixture] { return fixture.log.texts("TRACE").filter(" old: "); };
    QTRY_VERIFY_WITH_TIMEOUT(!stateChanges().filter("new: PAUSED pending: VOID_PENDING").isEmpty(),
                             patience);
    fixture.log.clear();
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
    QCOMPARE(fixture.engine.builds, 1);
    // On the way it does not fall back below PAUSED, which would lose the position.
    QTRY_VERIFY_WITH_TIMEOUT(!stateChanges().filter("new: PLAYING").isEmpty(), patience);
    QCOMPARE(stateChanges().size(), 1);
}

void TestEngineControl::pauseBeforeStartFails()
{
    EngineFixture fixture;
    fixture.log.clear();
    QVERIFY(!fixture.player.pausePlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::pausePlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"),
                          "ERROR " + notPausing}));
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineControl::pauseOfAHalfBuiltPipelineFails()
{
    EngineFixture fixture;
    fixture.engine.build = [](GstElement*) { return false; };
    fixture.player.startPlayback();
    QVERIFY(!fixture.player.pausePlayback());
    QCOMPARE(fixture.log.texts("ERROR").last(), notPausing);
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineControl::pauseFailsWhenPausedIsRefused()
{
    EngineFixture fixture;
    GstElement* refusing = nullptr;
    fixture.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_PLAYING_TO_PAUSED, &refusing);
    QVERIFY(fixture.player.startPlayback());
    fixture.log.clear();
    QVERIFY(!fixture.player.pausePlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::pausePlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          "ERROR pause state change failed"}));
    QVERIFY(fixture.engine.pipelineInitialized());
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
    stopRefusing(refusing);
}

void TestEngineControl::pauseWithoutPrerollIsASuccess()
{
    EngineFixture fixture;
    fixture.engine.build = addLiveElement;
    fixture.player.startPlayback();
    fixture.log.clear();
    QVERIFY(fixture.player.pausePlayback());
    QCOMPARE(lastStateChange(fixture.engine.pipeline), GST_STATE_CHANGE_NO_PREROLL);
    QCOMPARE(fixture.log.texts("ERROR"), QStringList());
    QCOMPARE(fixture.log.lines().last(), leaveLine("INFO", "SimplePlayerImpl::pausePlayback"));
}

void TestEngineControl::stopReportsOnceAndKeepsThePipeline()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    const GstElement* pipeline = fixture.engine.pipeline;
    fixture.log.clear();
    QVERIFY(fixture.player.stopPlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          leaveLine("INFO", "SimplePlayerImpl::stopPlayback"), "DEBUG token T"}));
    QCOMPARE(fixture.outcomes.all, QStringList()); // not from inside the call …
    QCOMPARE(fixture.engine.pipeline, pipeline);
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_NULL);
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList{"stopped T"}); // … but from the event loop

    QVERIFY(fixture.player.stopPlayback());
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList{"stopped T"});
}

void TestEngineControl::startAfterStopPlaysAgainOnTheSamePipeline()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    const GstElement* pipeline = fixture.engine.pipeline;
    fixture.player.stopPlayback();
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(fixture.engine.pipeline, pipeline);
    QCOMPARE(fixture.engine.builds, 1);
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
}

void TestEngineControl::stopBeforeStartReportsNotInitialized()
{
    EngineFixture fixture;
    fixture.log.clear();
    QVERIFY(!fixture.player.stopPlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"),
                          "ERROR " + notStopping, "DEBUG token: T"}));
    QCOMPARE(fixture.outcomes.all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList{"error T: Not initialized"});
}

void TestEngineControl::stopOfAHalfBuiltPipelineReportsNotInitialized()
{
    EngineFixture fixture;
    fixture.engine.build = [](GstElement*) { return false; };
    fixture.player.startPlayback();
    QVERIFY(!fixture.player.stopPlayback());
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList{"error T: Not initialized"});
}

void TestEngineControl::stopFailsWhenNullIsRefused()
{
    EngineFixture fixture;
    GstElement* refusing = nullptr;
    fixture.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_NULL, &refusing);
    QVERIFY(fixture.player.startPlayback());
    fixture.log.clear();
    QVERIFY(!fixture.player.stopPlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          "ERROR stop state change failed", "DEBUG token: T"}));
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList{"error T: stop failed"});
    // The pipeline stays as it is: the client may try again.
    stopRefusing(refusing);
    QVERIFY(fixture.player.stopPlayback());
}

void TestEngineControl::stopAfterEndIsTrueAndReportsNothingMore()
{
    EngineFixture fixture;
    fixture.engine.build = TestEngine::addShortSource;
    fixture.player.startPlayback();
    QTRY_COMPARE_WITH_TIMEOUT(fixture.outcomes.all, QStringList{"ended T"}, patience);
    QVERIFY(fixture.player.stopPlayback());
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_NULL); // the device is given back
    QCoreApplication::processEvents();
    QCOMPARE(fixture.log.texts("DEBUG").last(), alreadyReported);
    QCOMPARE(fixture.outcomes.all, QStringList{"ended T"});
}

void TestEngineControl::pauseAfterStopIsAccepted()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    fixture.player.stopPlayback();
    QVERIFY(fixture.player.pausePlayback());
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PAUSED);
}

void TestEngineControl::restartIsRefusedByTheBase()
{
    EngineFixture fixture;
    fixture.log.clear();
    QVERIFY(!fixture.engine.restartPlayback());
    QCOMPARE(fixture.log.lines(), QStringList{"ERROR " + restartRefused});
}

/// Whether the object that `reference` refers to is no more.
static bool isGone(GWeakRef* reference)
{
    gpointer object = g_weak_ref_get(reference);
    const bool gone = !object;
    g_clear_object(&object);
    return gone;
}

void TestEngineControl::releaseSetsNullAndDropsThePipeline()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    GWeakRef pipeline;
    g_weak_ref_init(&pipeline, fixture.engine.pipeline);
    fixture.log.clear();
    fixture.engine.releaseGstPipeline();
    QCOMPARE(fixture.log.lines(), releasing());
    QVERIFY(!fixture.engine.pipeline);
    QVERIFY(fixture.engine.initialized); // left as it was
    QVERIFY(!fixture.engine.pipelineInitialized());
    // The thread that made it play may drop the last reference a moment later.
    QTRY_VERIFY_WITH_TIMEOUT(isGone(&pipeline), patience);
    g_weak_ref_clear(&pipeline);
}

void TestEngineControl::releaseGoesOnWhenNullIsRefused()
{
    EngineFixture fixture;
    GstElement* refusing = nullptr;
    fixture.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_NULL, &refusing);
    QVERIFY(fixture.player.startPlayback());
    // GStreamer reports a pipeline that is finalized above NULL: this reference delays that.
    auto* pipeline = GST_ELEMENT(gst_object_ref(fixture.engine.pipeline));
    fixture.log.clear();
    fixture.engine.releaseGstPipeline();
    QCOMPARE(fixture.log.lines(), releasing());
    QVERIFY(!fixture.engine.pipeline);
    QCOMPARE(GST_OBJECT_REFCOUNT_VALUE(pipeline), 1);
    GstBus* bus = gst_element_get_bus(pipeline);
    QVERIFY(!gst_bus_remove_watch(bus)); // there is none any more
    gst_object_unref(bus);
    stopRefusing(refusing);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineControl::releaseWithoutPipelineOnlyLogs()
{
    EngineFixture fixture;
    fixture.log.clear();
    fixture.engine.releaseGstPipeline();
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline"),
                          "TRACE Pipeline is already released"}));
}

void TestEngineControl::pipelineInitializedNeedsBothFlagAndPipeline()
{
    EngineFixture fixture;
    fixture.log.clear();
    QVERIFY(!fixture.engine.pipelineInitialized());
    fixture.engine.initialized = true;
    QVERIFY(!fixture.engine.pipelineInitialized());
    fixture.engine.pipeline = gst_pipeline_new(nullptr);
    QVERIFY(fixture.engine.pipelineInitialized());
    fixture.engine.initialized = false;
    QVERIFY(!fixture.engine.pipelineInitialized());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0")}));
    gst_clear_object(&fixture.engine.pipeline);
}

void TestEngineControl::operationsAfterReleaseFailUntilTheNextStart()
{
    EngineFixture fixture;
    fixture.player.startPlayback();
    fixture.engine.releaseGstPipeline();
    QVERIFY(!fixture.player.pausePlayback());
    QVERIFY(!fixture.player.stopPlayback());
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(fixture.engine.builds, 2);
    QVERIFY(fixture.player.pausePlayback());
}

KOVA_TEST(TestEngineControl)
#include "tst_enginecontrol.moc"
