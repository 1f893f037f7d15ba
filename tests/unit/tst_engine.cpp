#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>

/// Construction and destruction of an engine, building and starting its pipeline, and each failure.
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
                     enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline"),
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
    const EngineFixture fixture;
    QCOMPARE(fixture.engine.player, &fixture.player);
    QVERIFY(!fixture.engine.pipeline);
    QCOMPARE(fixture.engine.token, QStringLiteral("T"));
    QCOMPARE(fixture.engine.device, QStringLiteral("device"));
    QVERIFY(!fixture.engine.initialized);
    QVERIFY(!fixture.engine.endReported);
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
    EngineFixture fixture;
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(fixture.engine.builds, 1);
    QVERIFY(fixture.engine.initialized);
    QVERIFY(GST_IS_PIPELINE(fixture.engine.pipeline));
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineOperations::everyPipelineGetsADefaultNameOfItsOwn()
{
    const QRegularExpression defaultName(QStringLiteral("^pipeline\\d+$"));
    QStringList names;
    for (int i = 0; i < 2; ++i) {
        const EngineFixture fixture;
        QVERIFY(fixture.engine.setupGstPipeline());
        names.append(QString::fromUtf8(GST_OBJECT_NAME(fixture.engine.pipeline)));
        QVERIFY2(defaultName.match(names.last()).hasMatch(), qPrintable(names.last()));
    }
    QVERIFY(names.first() != names.last());
}

void TestEngineOperations::secondStartOnlyRequestsPlayingAgain()
{
    EngineFixture fixture;
    QVERIFY(fixture.player.startPlayback());
    const GstElement* pipeline = fixture.engine.pipeline;
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(fixture.engine.builds, 1);
    QCOMPARE(fixture.engine.pipeline, pipeline);
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
}

void TestEngineOperations::startIsLoggedWithSetupAndNothingElse()
{
    EngineFixture fixture;
    fixture.log.clear();
    fixture.player.startPlayback();
    const QStringList first{
        enterLine("INFO", "SimplePlayerImpl::startPlayback"),
        enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline"),
        leaveLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "ret: 1 token: T"),
        leaveLine("INFO", "SimplePlayerImpl::startPlayback")};
    QCOMPARE(fixture.log.lines(), first);
    fixture.log.clear();
    fixture.player.startPlayback();
    QCOMPARE(fixture.log.lines(), (QStringList{first.first(), first.last()}));
}

void TestEngineOperations::startFailsWithoutAPipeline()
{
    EngineFixture fixture;
    const MissingFactory noPipelines("pipeline");
    fixture.log.clear();
    QVERIFY(!fixture.player.startPlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("INFO", "SimplePlayerImpl::startPlayback"),
                          enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline"),
                          "ERROR Failed to create gst pipeline", "ERROR " + setupFailure}));
    QCOMPARE(fixture.engine.builds, 0);
    QVERIFY(!fixture.engine.pipeline);
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineOperations::failedPipelineLeavesTheLastBuildsResult()
{
    const EngineFixture fixture;
    QVERIFY(fixture.engine.startPlayback());
    fixture.engine.releaseGstPipeline();
    const MissingFactory noPipelines("pipeline");
    QVERIFY(!fixture.engine.startPlayback());
    QVERIFY(fixture.engine.initialized);
    QVERIFY(!fixture.engine.pipelineInitialized());
}

void TestEngineOperations::lastBuildDecides()
{
    const EngineFixture fixture;
    QVERIFY(fixture.engine.startPlayback());
    fixture.engine.releaseGstPipeline();
    fixture.engine.build = [](GstElement*) { return false; };
    QVERIFY(!fixture.engine.startPlayback());
    QVERIFY(!fixture.engine.initialized);
    fixture.engine.releaseGstPipeline();
    fixture.engine.build = TestEngine::addEndlessSource;
    QVERIFY(fixture.engine.startPlayback());
    QVERIFY(fixture.engine.initialized);
}

void TestEngineOperations::startFailsWhenBuildingFails()
{
    EngineFixture fixture;
    fixture.engine.build = [](GstElement*) { return false; };
    fixture.log.clear();
    QVERIFY(!fixture.player.startPlayback());
    QCOMPARE(
        fixture.log.lines(),
        (QStringList{enterLine("INFO", "SimplePlayerImpl::startPlayback"),
                     enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline"),
                     leaveLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "ret: 0 token: T"),
                     "ERROR " + setupFailure}));
    QVERIFY(fixture.engine.pipeline);
    QVERIFY(!fixture.engine.initialized);
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
}

void TestEngineOperations::startAfterFailedBuildGoesOnWithTheHalfBuiltPipeline()
{
    EngineFixture fixture;
    fixture.engine.build = [](GstElement*) { return false; };
    QVERIFY(!fixture.player.startPlayback());
    const GstElement* halfBuilt = fixture.engine.pipeline;
    QVERIFY(fixture.player.startPlayback());
    QCOMPARE(fixture.engine.builds, 1);
    QCOMPARE(fixture.engine.pipeline, halfBuilt);
    QCOMPARE(settledState(fixture.engine.pipeline), GST_STATE_PLAYING);
}

void TestEngineOperations::halfBuiltPipelineIsWatched()
{
    EngineFixture fixture;
    fixture.engine.build = [](GstElement*) { return false; };
    QVERIFY(!fixture.player.startPlayback());
    gst_element_post_message(fixture.engine.pipeline, gst_message_new_eos(nullptr));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.outcomes.all, QStringList{"ended T"}, patience);
}

void TestEngineOperations::startFailsWhenPlayingIsRefused()
{
    EngineFixture fixture;
    fixture.engine.build = TestEngine::addRefusing(GST_STATE_CHANGE_READY_TO_PAUSED);
    fixture.log.clear();
    QVERIFY(!fixture.player.startPlayback());
    QCOMPARE(
        fixture.log.lines(),
        (QStringList{enterLine("INFO", "SimplePlayerImpl::startPlayback"),
                     enterLine("TRACE", "SimplePlayerImpl::setupGstPipeline"),
                     leaveLine("TRACE", "SimplePlayerImpl::setupGstPipeline", "ret: 1 token: T"),
                     "ERROR state change to state PLAYING failed"}));
    QCoreApplication::processEvents();
    QCOMPARE(fixture.outcomes.all, QStringList());
    // The pipeline keeps its state, so that GStreamer's error message still arrives.
    QVERIFY(fixture.engine.pipelineInitialized());
    QCOMPARE(GST_STATE(fixture.engine.pipeline), GST_STATE_READY);
    gst_element_post_message(fixture.engine.pipeline, errorMessage(nullptr, "the reason"));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.outcomes.all, QStringList{"error T: the reason"}, patience);
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
    EngineFixture fixture;
    fixture.player.startPlayback();
    gst_element_post_message(fixture.engine.pipeline, errorMessage(nullptr, "broken"));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.outcomes.all, QStringList{"error T: broken"}, patience);
    fixture.engine.build = TestEngine::addShortSource;
    fixture.log.clear();
    QVERIFY(fixture.player.startPlayback());
    QTRY_VERIFY_WITH_TIMEOUT(fixture.log.texts("DEBUG").contains(alreadyReported), patience);
    QCOMPARE(fixture.engine.builds, 2);
    QCOMPARE(fixture.outcomes.all, QStringList{"error T: broken"});
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
    // This thread's event loop does not run meanwhile, so that nothing can arrive through it.
    QVERIFY(owner->wait());
    QCOMPARE(outcomesThere, QStringList{"ended T"});
}

KOVA_TEST(TestEngineOperations)
#include "tst_engine.moc"
