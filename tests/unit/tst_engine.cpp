#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <cstdio>
#include <memory>

namespace {

/// A player with its log and its outcomes.
struct Scene
{
    LogCapture log;
    TestPlayer player;
    Outcomes outcomes{&player};
    TestEngine& engine = *player.engine;

    /// Processes everything that is queued for the engine, then lets the test look at the result.
    static void runEventLoop() { QCoreApplication::processEvents(); }
};

/// Posts a message to the bus of an engine's pipeline, as an element in it would; takes it over.
void post(const TestEngine& engine, GstMessage* message)
{
    gst_element_post_message(engine.pipeline, message);
}

GstMessage* errorMessage(const char* text)
{
    GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, text);
    GstMessage* message = gst_message_new_error(nullptr, error, nullptr);
    g_error_free(error);
    return message;
}

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

/// Building, starting, pausing, stopping and releasing a pipeline, with each state and failure.
class TestEngineOperations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void constructionAndDestructionAreLogged();
    void tokenIsLoggedAndReportedWhole_data();
    void tokenIsLoggedAndReportedWhole();
    void constructionInitialisesTheMembers();
    void engineIsAChildOfItsPlayer();

    void startBuildsAPipelineAndPlays();
    void everyPipelineGetsADefaultNameOfItsOwn();
    void secondStartOnlyRequestsPlayingAgain();
    void startIsLoggedWithSetupAndNothingElse();
    void startFailsWithoutAPipeline();
    void failedPipelineLeavesTheLastBuildsResult();
    void lastBuildDecides();
    void startFailsWhenBuildingFails();
    void startAfterFailedBuildGoesOnWithTheHalfBuiltPipeline();
    void halfBuiltPipelineIsWatched();
    void startFailsWhenPlayingIsRefused();
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

    void destructionInEveryStateEmitsNothing_data();
    void destructionInEveryStateEmitsNothing();
    void startAfterErrorBuildsAFreshPipelineWhoseEndIsNeverSignalled();
    void engineIsServedByTheThreadThatMadeIt();
};

void TestEngineOperations::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(leakedGstObjects(), QString());
}

void TestEngineOperations::constructionAndDestructionAreLogged()
{
    LogCapture log;
    auto player = std::make_unique<TestPlayer>();
    QCOMPARE(
        log.lines(),
        (QStringList{enterLine("TRACE", "SimplePlayerImpl::SimplePlayerImpl", "constructor T"),
                     leaveLine("TRACE", "SimplePlayerImpl::SimplePlayerImpl", "constructor T")}));
    log.clear();
    player.reset();
    QCOMPARE(
        log.lines(),
        (QStringList{enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T"),
                     enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                     "TRACE Pipeline is already released",
                     leaveLine("TRACE", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T")}));
}

void TestEngineOperations::tokenIsLoggedAndReportedWhole_data()
{
    QTest::addColumn<QString>("token");
    QTest::newRow("null character") << QStringLiteral("a") + QChar(QChar::Null) + 'b';
    QTest::newRow("1 MiB") << QString(1 << 20, QLatin1Char('x'));
    QTest::newRow("format characters") << "%s%n%1 {}";
}

void TestEngineOperations::tokenIsLoggedAndReportedWhole()
{
    QFETCH(QString, token);
    const LogCapture log;
    TestPlayer player(token);
    const Outcomes outcomes(&player);
    QVERIFY(player.startPlayback());
    QVERIFY(player.stopPlayback());
    QVERIFY(log.lines().contains("DEBUG token " + token));
    QVERIFY(log.lines().contains("INFO Enter SimplePlayer SimplePlayerImpl::stopPlayback: token: " +
                                 token));
    deliverQueuedEvents();
    QCOMPARE(outcomes.all, QStringList("stopped " + token));
}

void TestEngineOperations::constructionInitialisesTheMembers()
{
    const Scene scene;
    QCOMPARE(scene.engine.player, &scene.player);
    QVERIFY(!scene.engine.pipeline);
    QCOMPARE(scene.engine.token, QStringLiteral("T"));
    QCOMPARE(scene.engine.device, QStringLiteral("device"));
    QVERIFY(!scene.engine.initialized);
    QVERIFY(!scene.engine.endReported);
}

void TestEngineOperations::engineIsAChildOfItsPlayer()
{
    auto player = std::make_unique<TestPlayer>();
    const QPointer<TestEngine> engine(player->engine);
    QCOMPARE(engine->parent(), player.get());
    player.reset();
    QVERIFY(!engine);
}

void TestEngineOperations::startBuildsAPipelineAndPlays()
{
    Scene scene;
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(scene.engine.builds, 1);
    QVERIFY(scene.engine.initialized);
    QVERIFY(GST_IS_PIPELINE(scene.engine.pipeline));
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::everyPipelineGetsADefaultNameOfItsOwn()
{
    const QRegularExpression defaultName(QStringLiteral("^pipeline\\d+$"));
    QStringList names;
    for (int i = 0; i < 2; ++i) {
        const Scene scene;
        QVERIFY(scene.engine.setupGstPipeline());
        names.append(QString::fromUtf8(GST_OBJECT_NAME(scene.engine.pipeline)));
        QVERIFY2(defaultName.match(names.last()).hasMatch(), qPrintable(names.last()));
    }
    QVERIFY(names.first() != names.last());
}

void TestEngineOperations::secondStartOnlyRequestsPlayingAgain()
{
    Scene scene;
    QVERIFY(scene.player.startPlayback());
    const GstElement* pipeline = scene.engine.pipeline;
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(scene.engine.builds, 1);
    QCOMPARE(scene.engine.pipeline, pipeline);
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
}

void TestEngineOperations::startIsLoggedWithSetupAndNothingElse()
{
    Scene scene;
    scene.log.clear();
    scene.player.startPlayback();
    const QStringList first{
        enterLine("INFO", "SimplePlayerImpl::startPlayback", "token: T"),
        enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "token: T"),
        leaveLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "ret: 1 token: T"),
        leaveLine("INFO", "SimplePlayerImpl::startPlayback", "token: T")};
    QCOMPARE(scene.log.lines(), first);
    scene.log.clear();
    scene.player.startPlayback();
    QCOMPARE(scene.log.lines(), (QStringList{first.first(), first.last()}));
}

void TestEngineOperations::startFailsWithoutAPipeline()
{
    Scene scene;
    const MissingFactory noPipelines("pipeline");
    scene.log.clear();
    QVERIFY(!scene.player.startPlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::startPlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "token: T"),
                          "ERROR Failed to create gst pipeline",
                          "ERROR Failed to setup gst pipeline of simple player"}));
    QCOMPARE(scene.engine.builds, 0);
    QVERIFY(!scene.engine.pipeline);
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::failedPipelineLeavesTheLastBuildsResult()
{
    const Scene scene;
    QVERIFY(scene.engine.startPlayback());
    scene.engine.releaseGstPipeline();
    const MissingFactory noPipelines("pipeline");
    QVERIFY(!scene.engine.startPlayback());
    QVERIFY(scene.engine.initialized);
    QVERIFY(!scene.engine.pipelineInitialized());
}

void TestEngineOperations::lastBuildDecides()
{
    const Scene scene;
    QVERIFY(scene.engine.startPlayback());
    scene.engine.releaseGstPipeline();
    scene.engine.build = [](GstElement*) { return false; };
    QVERIFY(!scene.engine.startPlayback());
    QVERIFY(!scene.engine.initialized);
    scene.engine.releaseGstPipeline();
    scene.engine.build = TestEngine::addEndlessSource;
    QVERIFY(scene.engine.startPlayback());
    QVERIFY(scene.engine.initialized);
}

void TestEngineOperations::startFailsWhenBuildingFails()
{
    Scene scene;
    scene.engine.build = [](GstElement*) { return false; };
    scene.log.clear();
    QVERIFY(!scene.player.startPlayback());
    QCOMPARE(
        scene.log.lines(),
        (QStringList{enterLine("INFO", "SimplePlayerImpl::startPlayback", "token: T"),
                     enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "token: T"),
                     leaveLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "ret: 0 token: T"),
                     "ERROR Failed to setup gst pipeline of simple player"}));
    QVERIFY(scene.engine.pipeline);
    QVERIFY(!scene.engine.initialized);
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::startAfterFailedBuildGoesOnWithTheHalfBuiltPipeline()
{
    Scene scene;
    scene.engine.build = [](GstElement*) { return false; };
    QVERIFY(!scene.player.startPlayback());
    const GstElement* halfBuilt = scene.engine.pipeline;
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(scene.engine.builds, 1);
    QCOMPARE(scene.engine.pipeline, halfBuilt);
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
}

void TestEngineOperations::halfBuiltPipelineIsWatched()
{
    Scene scene;
    scene.engine.build = [](GstElement*) { return false; };
    QVERIFY(!scene.player.startPlayback());
    post(scene.engine, gst_message_new_eos(nullptr));
    QTRY_COMPARE_WITH_TIMEOUT(scene.outcomes.all, QStringList{"ended T"}, patience);
}

void TestEngineOperations::startFailsWhenPlayingIsRefused()
{
    Scene scene;
    scene.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_PAUSED);
    scene.log.clear();
    QVERIFY(!scene.player.startPlayback());
    QCOMPARE(
        scene.log.lines(),
        (QStringList{enterLine("INFO", "SimplePlayerImpl::startPlayback", "token: T"),
                     enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "token: T"),
                     leaveLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "ret: 1 token: T"),
                     "ERROR state change to state PLAYING failed"}));
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
    // The pipeline stays as far as it came, so that GStreamer can still tell its reason.
    QVERIFY(scene.engine.pipelineInitialized());
    QCOMPARE(GST_STATE(scene.engine.pipeline), GST_STATE_READY);
    post(scene.engine, errorMessage("the reason"));
    QTRY_COMPARE_WITH_TIMEOUT(scene.outcomes.all, QStringList{"error T: the reason"}, patience);
}

void TestEngineOperations::startWithoutPrerollIsASuccess()
{
    Scene scene;
    scene.engine.build = addLiveElement;
    scene.log.clear();
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(lastStateChange(scene.engine.pipeline), GST_STATE_CHANGE_NO_PREROLL);
    QCOMPARE(scene.log.texts("ERROR"), QStringList());
    QCOMPARE(scene.log.lines().last(),
             leaveLine("INFO", "SimplePlayerImpl::startPlayback", "token: T"));
}

void TestEngineOperations::pauseHaltsThePipelineAndReportsNothing()
{
    Scene scene;
    scene.player.startPlayback();
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
    scene.log.clear();
    QVERIFY(scene.player.pausePlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::pausePlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          leaveLine("INFO", "SimplePlayerImpl::pausePlayback", "token: T")}));
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PAUSED);
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::pauseThenStartResumes()
{
    Scene scene;
    scene.player.startPlayback();
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
    scene.player.pausePlayback();
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PAUSED);
    const auto stateChanges = [&scene] { return scene.log.texts("TRACE").filter(" old: "); };
    QTRY_VERIFY_WITH_TIMEOUT(!stateChanges().filter("new: PAUSED pending: VOID_PENDING").isEmpty(),
                             patience);
    scene.log.clear();
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
    QCOMPARE(scene.engine.builds, 1);
    // On the way it does not fall back below PAUSED, which would lose the position.
    QTRY_VERIFY_WITH_TIMEOUT(!stateChanges().filter("new: PLAYING").isEmpty(), patience);
    QCOMPARE(stateChanges().size(), 1);
}

void TestEngineOperations::pauseBeforeStartFails()
{
    Scene scene;
    scene.log.clear();
    QVERIFY(!scene.player.pausePlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::pausePlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"),
                          "ERROR Pipeline not initialized - not pausing"}));
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::pauseOfAHalfBuiltPipelineFails()
{
    Scene scene;
    scene.engine.build = [](GstElement*) { return false; };
    scene.player.startPlayback();
    QVERIFY(!scene.player.pausePlayback());
    QCOMPARE(scene.log.texts("ERROR").last(),
             QStringLiteral("Pipeline not initialized - not pausing"));
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::pauseFailsWhenPausedIsRefused()
{
    Scene scene;
    GstElement* stubborn = nullptr;
    scene.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_PLAYING_TO_PAUSED, &stubborn);
    QVERIFY(scene.player.startPlayback());
    scene.log.clear();
    QVERIFY(!scene.player.pausePlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::pausePlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          "ERROR pause state change failed"}));
    QVERIFY(scene.engine.pipelineInitialized());
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
    stopRefusing(stubborn);
}

void TestEngineOperations::pauseWithoutPrerollIsASuccess()
{
    Scene scene;
    scene.engine.build = addLiveElement;
    scene.player.startPlayback();
    scene.log.clear();
    QVERIFY(scene.player.pausePlayback());
    QCOMPARE(lastStateChange(scene.engine.pipeline), GST_STATE_CHANGE_NO_PREROLL);
    QCOMPARE(scene.log.texts("ERROR"), QStringList());
    QCOMPARE(scene.log.lines().last(),
             leaveLine("INFO", "SimplePlayerImpl::pausePlayback", "token: T"));
}

void TestEngineOperations::stopReportsOnceAndKeepsThePipeline()
{
    Scene scene;
    scene.player.startPlayback();
    const GstElement* pipeline = scene.engine.pipeline;
    scene.log.clear();
    QVERIFY(scene.player.stopPlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          leaveLine("INFO", "SimplePlayerImpl::stopPlayback", "token: T"),
                          "DEBUG token T"}));
    QCOMPARE(scene.outcomes.all, QStringList()); // not from inside the call …
    QCOMPARE(scene.engine.pipeline, pipeline);
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_NULL);
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList{"stopped T"}); // … but from the event loop

    QVERIFY(scene.player.stopPlayback());
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList{"stopped T"});
}

void TestEngineOperations::startAfterStopPlaysAgainOnTheSamePipeline()
{
    Scene scene;
    scene.player.startPlayback();
    const GstElement* pipeline = scene.engine.pipeline;
    scene.player.stopPlayback();
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(scene.engine.pipeline, pipeline);
    QCOMPARE(scene.engine.builds, 1);
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
}

void TestEngineOperations::stopBeforeStartReportsNotInitialized()
{
    Scene scene;
    scene.log.clear();
    QVERIFY(!scene.player.stopPlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"),
                          "ERROR Pipeline not initialized - not stopping", "DEBUG token: T"}));
    QCOMPARE(scene.outcomes.all, QStringList());
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList{"error T: Not initialized"});
}

void TestEngineOperations::stopOfAHalfBuiltPipelineReportsNotInitialized()
{
    Scene scene;
    scene.engine.build = [](GstElement*) { return false; };
    scene.player.startPlayback();
    QVERIFY(!scene.player.stopPlayback());
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList{"error T: Not initialized"});
}

void TestEngineOperations::stopFailsWhenNullIsRefused()
{
    Scene scene;
    GstElement* stubborn = nullptr;
    scene.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_NULL, &stubborn);
    QVERIFY(scene.player.startPlayback());
    scene.log.clear();
    QVERIFY(!scene.player.stopPlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback", "token: T"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          "ERROR stop state change failed", "DEBUG token: T"}));
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList{"error T: stop failed"});
    // The pipeline stays as it is: the client may try again.
    stopRefusing(stubborn);
    QVERIFY(scene.player.stopPlayback());
}

void TestEngineOperations::stopAfterEndIsTrueAndReportsNothingMore()
{
    Scene scene;
    scene.engine.build = TestEngine::addShortSource;
    scene.player.startPlayback();
    QTRY_COMPARE_WITH_TIMEOUT(scene.outcomes.all, QStringList{"ended T"}, patience);
    QVERIFY(scene.player.stopPlayback());
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_NULL); // the device is given back
    scene.runEventLoop();
    QCOMPARE(scene.log.texts("DEBUG").last(), QStringLiteral("End of playback already reported"));
    QCOMPARE(scene.outcomes.all, QStringList{"ended T"});
}

void TestEngineOperations::pauseAfterStopIsAccepted()
{
    Scene scene;
    scene.player.startPlayback();
    scene.player.stopPlayback();
    QVERIFY(scene.player.pausePlayback());
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PAUSED);
}

void TestEngineOperations::restartIsRefusedByTheBase()
{
    Scene scene;
    scene.log.clear();
    QVERIFY(!scene.engine.restartPlayback());
    QCOMPARE(scene.log.lines(), QStringList{"ERROR Restart(loop) playback not implemented"});
}

/// Whether the object that `reference` refers to is no more.
static bool isGone(GWeakRef* reference)
{
    gpointer object = g_weak_ref_get(reference);
    const bool gone = !object;
    g_clear_object(&object);
    return gone;
}

void TestEngineOperations::releaseSetsNullAndDropsThePipeline()
{
    Scene scene;
    scene.player.startPlayback();
    GWeakRef pipeline;
    g_weak_ref_init(&pipeline, scene.engine.pipeline);
    scene.log.clear();
    scene.engine.releaseGstPipeline();
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                          "TRACE Releasing active playback pipeline",
                          leaveLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T")}));
    QVERIFY(!scene.engine.pipeline);
    QVERIFY(scene.engine.initialized); // left as it was
    QVERIFY(!scene.engine.pipelineInitialized());
    // The thread that made it play may drop the last reference a moment later.
    QTRY_VERIFY_WITH_TIMEOUT(isGone(&pipeline), patience);
    g_weak_ref_clear(&pipeline);
}

void TestEngineOperations::releaseGoesOnWhenNullIsRefused()
{
    Scene scene;
    GstElement* stubborn = nullptr;
    scene.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_NULL, &stubborn);
    QVERIFY(scene.player.startPlayback());
    // GStreamer minds when a pipeline dies above NULL: this reference delays it.
    auto* pipeline = GST_ELEMENT(gst_object_ref(scene.engine.pipeline));
    scene.log.clear();
    scene.engine.releaseGstPipeline();
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                          "TRACE Releasing active playback pipeline",
                          leaveLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T")}));
    QVERIFY(!scene.engine.pipeline);
    QCOMPARE(GST_OBJECT_REFCOUNT_VALUE(pipeline), 1);
    GstBus* bus = gst_element_get_bus(pipeline);
    QVERIFY(!gst_bus_remove_watch(bus)); // there is none any more
    gst_object_unref(bus);
    stopRefusing(stubborn);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
}

void TestEngineOperations::releaseWithoutPipelineOnlyLogs()
{
    Scene scene;
    scene.log.clear();
    scene.engine.releaseGstPipeline();
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                          "TRACE Pipeline is already released"}));
}

void TestEngineOperations::pipelineInitializedNeedsBothFlagAndPipeline()
{
    Scene scene;
    scene.log.clear();
    QVERIFY(!scene.engine.pipelineInitialized());
    scene.engine.initialized = true;
    QVERIFY(!scene.engine.pipelineInitialized());
    scene.engine.pipeline = gst_pipeline_new(nullptr);
    QVERIFY(scene.engine.pipelineInitialized());
    scene.engine.initialized = false;
    QVERIFY(!scene.engine.pipelineInitialized());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"),
                          enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0")}));
    gst_clear_object(&scene.engine.pipeline);
}

void TestEngineOperations::operationsAfterReleaseFailUntilTheNextStart()
{
    Scene scene;
    scene.player.startPlayback();
    scene.engine.releaseGstPipeline();
    QVERIFY(!scene.player.pausePlayback());
    QVERIFY(!scene.player.stopPlayback());
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(scene.engine.builds, 2);
    QVERIFY(scene.player.pausePlayback());
}

void TestEngineOperations::destructionInEveryStateEmitsNothing_data()
{
    QTest::addColumn<QString>("calls");
    QTest::newRow("created") << "";
    QTest::newRow("playing") << "start";
    QTest::newRow("paused") << "start pause";
    QTest::newRow("stopped, report pending") << "start stop";
    QTest::newRow("stop failed, report pending") << "stop";
    QTest::newRow("half-built") << "fail start";
    QTest::newRow("ended") << "short start end";
    QTest::newRow("released") << "start release";
}

void TestEngineOperations::destructionInEveryStateEmitsNothing()
{
    QFETCH(QString, calls);
    auto player = std::make_unique<TestPlayer>();
    TestEngine& engine = *player->engine;
    Outcomes outcomes(player.get());
    for (const QString& call : calls.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (call == "fail") {
            engine.build = [](GstElement*) { return false; };
        } else if (call == "short") {
            engine.build = TestEngine::addShortSource;
        } else if (call == "start") {
            player->startPlayback();
        } else if (call == "pause") {
            player->pausePlayback();
        } else if (call == "stop") {
            player->stopPlayback();
        } else if (call == "release") {
            engine.releaseGstPipeline();
        } else if (call == "end") {
            QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"ended T"}, patience);
        }
    }
    outcomes.all.clear();
    player.reset();
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList());
}

void TestEngineOperations::startAfterErrorBuildsAFreshPipelineWhoseEndIsNeverSignalled()
{
    Scene scene;
    scene.player.startPlayback();
    post(scene.engine, errorMessage("broken"));
    QTRY_COMPARE_WITH_TIMEOUT(scene.outcomes.all, QStringList{"error T: broken"}, patience);
    scene.engine.build = TestEngine::addShortSource;
    scene.log.clear();
    QVERIFY(scene.player.startPlayback());
    QTRY_VERIFY_WITH_TIMEOUT(scene.log.texts("DEBUG").contains("End of playback already reported"),
                             patience);
    QCOMPARE(scene.engine.builds, 2);
    QCOMPARE(scene.outcomes.all, QStringList{"error T: broken"});
}

void TestEngineOperations::engineIsServedByTheThreadThatMadeIt()
{
    QStringList outcomesThere;
    const std::unique_ptr<QThread> owner(QThread::create([&outcomesThere] {
        TestPlayer player;
        const Outcomes outcomes(&player);
        player.engine->build = TestEngine::addShortSource;
        player.startPlayback();
        if (QTest::qWaitFor([&outcomes] { return !outcomes.all.isEmpty(); }, patience)) {
            outcomesThere = outcomes.all;
        }
    }));
    owner->start();
    // This thread's event loop stands still meanwhile: nothing can arrive through it.
    QVERIFY(owner->wait());
    QCOMPARE(outcomesThere, QStringList{"ended T"});
}

KOVA_TEST(TestEngineOperations)
#include "tst_engine.moc"
