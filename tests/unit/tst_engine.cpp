#include "unit/TestEngine.h"

#include "support/GstLeaks.h"
#include "support/LogCapture.h"
#include "support/Outcomes.h"
#include "support/TestProcess.h"

#include <QtTest/QtTest>

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

} // namespace

/// Building, starting, pausing, stopping and releasing a pipeline, with each state and failure.
class TestEngineOperations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void constructionAndDestructionAreLogged();
    void constructionInitialisesTheMembers();
    void engineIsAChildOfItsPlayer();

    void startBuildsAPipelineAndPlays();
    void secondStartOnlyRequestsPlayingAgain();
    void startIsLoggedWithSetupAndNothingElse();
    void startFailsWithoutAPipeline();
    void startFailsWhenBuildingFails();
    void startAfterFailedBuildGoesOnWithTheHalfBuiltPipeline();
    void startFailsWhenPlayingIsRefused();

    void pauseHaltsThePipelineAndReportsNothing();
    void pauseThenStartResumes();
    void pauseBeforeStartFails();
    void pauseOfAHalfBuiltPipelineFails();
    void pauseFailsWhenPausedIsRefused();

    void stopReportsOnceAndKeepsThePipeline();
    void startAfterStopPlaysAgainOnTheSamePipeline();
    void stopBeforeStartReportsNotInitialized();
    void stopOfAHalfBuiltPipelineReportsNotInitialized();
    void stopFailsWhenNullIsRefused();
    void stopAfterEndIsTrueAndReportsNothingMore();
    void pauseAfterStopIsAccepted();

    void restartIsRefusedByTheBase();

    void releaseSetsNullAndDropsThePipeline();
    void releaseWithoutPipelineOnlyLogs();
    void pipelineInitializedNeedsBothFlagAndPipeline();
    void operationsAfterReleaseFailUntilTheNextStart();

    void destructionInEveryStateEmitsNothing_data();
    void destructionInEveryStateEmitsNothing();
    void startAfterErrorBuildsAFreshPipelineWhoseEndIsNeverSignalled();
};

void TestEngineOperations::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(leakedGstObjects().join(QLatin1Char(' ')), QString());
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

void TestEngineOperations::constructionInitialisesTheMembers()
{
    const Scene scene;
    QCOMPARE(scene.engine.player, &scene.player);
    QVERIFY(!scene.engine.pipeline);
    QCOMPARE(scene.engine.token, QStringLiteral("T"));
    QCOMPARE(scene.engine.device, QStringLiteral("device"));
    QVERIFY(!scene.engine.initialized);
    QVERIFY(!scene.engine.endReported);
    QVERIFY(gst_is_initialized());
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

void TestEngineOperations::startFailsWhenPlayingIsRefused()
{
    Scene scene;
    scene.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_PAUSED);
    scene.log.clear();
    QVERIFY(!scene.player.startPlayback());
    QCOMPARE(scene.log.texts("ERROR"), QStringList{"state change to state PLAYING failed"});
    QVERIFY(!scene.log.lines().contains(
        leaveLine("INFO", "SimplePlayerImpl::startPlayback", "token: T")));
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
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
    QVERIFY(scene.player.startPlayback());
    QCOMPARE(settledState(scene.engine.pipeline), GST_STATE_PLAYING);
    QCOMPARE(scene.engine.builds, 1);
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
    QCOMPARE(scene.log.texts("ERROR"), QStringList{"pause state change failed"});
    QVERIFY(!scene.log.lines().contains(
        leaveLine("INFO", "SimplePlayerImpl::pausePlayback", "token: T")));
    scene.runEventLoop();
    QCOMPARE(scene.outcomes.all, QStringList());
    stopRefusing(stubborn);
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
    stopRefusing(stubborn);
}

void TestEngineOperations::stopAfterEndIsTrueAndReportsNothingMore()
{
    Scene scene;
    scene.engine.build = TestEngine::addShortSource;
    scene.player.startPlayback();
    QTRY_COMPARE(scene.outcomes.all, QStringList{"ended T"});
    QVERIFY(scene.player.stopPlayback());
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
    gpointer alive = g_weak_ref_get(&pipeline);
    QVERIFY(!alive);
    g_weak_ref_clear(&pipeline);
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
            QTRY_COMPARE(outcomes.all, QStringList{"ended T"});
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
    scene.engine.build = TestEngine::addShortSource;
    scene.player.startPlayback();
    GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "broken");
    gst_element_post_message(scene.engine.pipeline, gst_message_new_error(nullptr, error, nullptr));
    g_error_free(error);
    QTRY_COMPARE(scene.outcomes.all.size(), 1);
    // Whichever of error and end came first was told; now play to the end once more.
    scene.engine.releaseGstPipeline();
    scene.log.clear();
    QVERIFY(scene.player.startPlayback());
    QTRY_VERIFY(scene.log.texts("DEBUG").contains("End of playback already reported"));
    QCOMPARE(scene.engine.builds, 2);
    QCOMPARE(scene.outcomes.all.size(), 1);
}

KOVA_TEST_MAIN(TestEngineOperations)
#include "tst_engine.moc"
