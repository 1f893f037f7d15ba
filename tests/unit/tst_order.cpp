#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/FifoWriter.h"
#include "kit/LogCapture.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>
#include <simplePlayer/StreamSimplePlayer.h>

#include <QtCore/QSocketNotifier>
#include <QtTest/QtTest>

/// The order of the steps inside the engines' operations, where clients, log readers or GStreamer
/// can observe it.
class TestOrder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void watchIsInstalledBeforeThePipelineIsBuilt();
    void watchIsRemovedAfterThePipelineIsInNull();
    void stopReportsAfterItsLastStateChange();

    void notifierIsEnabledBeforeTheLeaveLine();
    void blockIsMappedDuringThePush();

    void refusedPushIsLoggedBeforeItIsReported();
    void arrayIsClearedAfterTheEndOfStream();

    void feedHandlersPrecedeLaterHandlers_data();
    void feedHandlersPrecedeLaterHandlers();
};

void TestOrder::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

/// Whether the bus watch of an engine is attached to the main context.
static bool isWatched(const TestEngine* engine)
{
    return g_main_context_find_source_by_user_data(nullptr, const_cast<TestEngine*>(engine)) !=
           nullptr;
}

void TestOrder::watchIsInstalledBeforeThePipelineIsBuilt()
{
    TestPlayer player;
    bool watched = false;
    player.engine->build = [&](GstElement* /*bin*/) {
        watched = isWatched(player.engine);
        return false;
    };
    QVERIFY(!player.engine->setupGstPipeline());
    QVERIFY(watched);
}

void TestOrder::watchIsRemovedAfterThePipelineIsInNull()
{
    TestPlayer player;
    QVERIFY(player.startPlayback());
    settledState(player.engine->pipeline);
    const GstElement* const pipeline = player.engine->pipeline;
    QList<bool> watched;
    const StateChangeObserver observer([&](GstElement* element, GstStateChange change) {
        if (element == pipeline && change == GST_STATE_CHANGE_READY_TO_NULL) {
            watched << isWatched(player.engine);
        }
    });
    player.engine->releaseGstPipeline();
    QCOMPARE(watched, QList<bool>{true});
    QVERIFY(!isWatched(player.engine));
}

void TestOrder::stopReportsAfterItsLastStateChange()
{
    TestPlayer player;
    QVERIFY(player.startPlayback());
    settledState(player.engine->pipeline);
    LogCapture log;
    QStringList steps;
    log.onLine([&](const QString& line) {
        if (line == QLatin1String("DEBUG token T")) {
            steps << QStringLiteral("report");
        }
    });
    const StateChangeObserver observer([&](GstElement* element, GstStateChange /*change*/) {
        if (element == player.engine->pipeline) {
            steps << QStringLiteral("state change");
        }
    });
    QVERIFY(player.stopPlayback());
    deliverQueuedEvents();
    QVERIFY(steps.contains(QStringLiteral("state change")));
    QCOMPARE(steps.indexOf(QStringLiteral("report")), steps.size() - 1);
}

void TestOrder::notifierIsEnabledBeforeTheLeaveLine()
{
    StreamSimplePlayer front(QString(), QString(), QStringLiteral("front"), QString());
    LogCapture log;
    QList<bool> enabled;
    log.onLine([&](const QString& line) {
        if (line.contains(
                QLatin1String("Leave SimplePlayer StreamSimplePlayerImpl::initReadPipe"))) {
            enabled << front.findChild<QSocketNotifier*>()->isEnabled();
        }
    });
    const OpenStreamEngine engine(TestProcess::path(QStringLiteral("fifo")), QString(),
                                  QStringLiteral("T"), QString(), &front);
    QCOMPARE(enabled, QList<bool>{true});
}

/// How many of the buffers alive are still mapped for writing: the lock refuses to map these for
/// reading.
static int mappedBuffers()
{
    int mapped = 0;
    for (GstBuffer* buffer : liveGstBuffers()) {
        GstMemory* memory = gst_buffer_peek_memory(buffer, 0);
        GstMapInfo map;
        if (gst_memory_map(memory, &map, GST_MAP_READ)) {
            gst_memory_unmap(memory, &map);
        } else {
            ++mapped;
        }
    }
    return mapped;
}

void TestOrder::blockIsMappedDuringThePush()
{
    const QString fifo = TestProcess::path(QStringLiteral("fifo"));
    StreamSimplePlayer front(QString(), QString(), QStringLiteral("front"), QString());
    OpenStreamEngine engine(fifo, QString(), QStringLiteral("T"), QStringLiteral("null"), &front);
    QVERIFY(engine.setupGstPipeline());
    // The push of a second block emits "enough-data", and the engine logs that it is called.
    LogCapture log;
    QList<int> mapped;
    log.onLine([&](const QString& line) {
        if (line.contains(
                QLatin1String("Enter SimplePlayer StreamSimplePlayerImpl::on_receiveNewData"))) {
            mapped << mappedBuffers();
        }
    });
    const FifoWriter writer(fifo);
    writer.write(QByteArray(8192, 'x'));
    for (int i = 0; i < 2; ++i) {
        QMetaObject::invokeMethod(&engine, "on_readPipeNotifier_activated", Q_ARG(int, 0));
    }
    QCOMPARE(mapped, QList<int>{1});
}

void TestOrder::refusedPushIsLoggedBeforeItIsReported()
{
    DataSimplePlayer front("unused", QStringLiteral("front"), QString());
    OpenDataEngine engine("0123456789", QStringLiteral("T"), QStringLiteral("null"), &front);
    QVERIFY(engine.setupGstPipeline());
    const LogCapture log;
    QList<QStringList> errors;
    connect(&front, &SimplePlayer::playbackErrorReported, [&] { errors << log.texts("ERROR"); });
    GstFlowReturn ret = GST_FLOW_OK;
    g_signal_emit_by_name(engine.appsrc, "end-of-stream", &ret);
    engine.feedDataCallback(4);
    QCOMPARE(errors, QList<QStringList>{QStringList("Unable to push buffer, ret: -3")});
}

void TestOrder::arrayIsClearedAfterTheEndOfStream()
{
    DataSimplePlayer front("unused", QStringLiteral("front"), QString());
    OpenDataEngine engine("0123456789", QStringLiteral("T"), QStringLiteral("null"), &front);
    QVERIFY(engine.setupGstPipeline());
    struct Observation
    {
        OpenDataEngine& engine;
        QList<int> sizes;

        static GstFlowReturn note(GstElement* /*appsrc*/, Observation* self)
        {
            self->sizes << self->engine.data.size();
            return GST_FLOW_OK;
        }
    } observation{engine, {}};
    // Runs before the appsrc's own handler.
    g_signal_connect(engine.appsrc, "end-of-stream", G_CALLBACK(Observation::note), &observation);
    engine.seekDataCallback(10);
    engine.feedDataCallback(4);
    QCOMPARE(observation.sizes, QList<int>{10});
    QCOMPARE(engine.data.size(), 0);
}

void TestOrder::feedHandlersPrecedeLaterHandlers_data()
{
    QTest::addColumn<bool>("stream");
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QString>("function");
    QTest::newRow("data, need-data") << false << "need-data"
                                     << "feedDataCallback";
    QTest::newRow("data, seek-data") << false << "seek-data"
                                     << "seekDataCallback";
    QTest::newRow("stream, need-data") << true << "need-data"
                                       << "on_receiveNewData: read: 1";
    QTest::newRow("stream, enough-data") << true << "enough-data"
                                         << "on_receiveNewData: read: 0";
}

/// What a handler finds in the log that is connected after those of the engine, with
/// g_signal_connect.
struct LaterHandler
{
    LaterHandler(GstElement* element, const char* signal)
    {
        GClosure* closure = g_closure_new_simple(sizeof(GClosure), this);
        g_closure_set_marshal(
            closure, [](GClosure* self, GValue*, guint, const GValue*, gpointer, gpointer) {
                auto* handler = static_cast<LaterHandler*>(self->data);
                handler->lines = handler->log.lines();
            });
        g_signal_connect_closure(element, signal, closure, FALSE);
    }

    const LogCapture log;
    QStringList lines;
};

void TestOrder::feedHandlersPrecedeLaterHandlers()
{
    QFETCH(bool, stream);
    QFETCH(QString, signal);
    QFETCH(QString, function);
    DataSimplePlayer dataFront("unused", QStringLiteral("front"), QString());
    StreamSimplePlayer streamFront(QString(), QString(), QStringLiteral("front"), QString());
    OpenDataEngine data("0123456789", QStringLiteral("T"), QStringLiteral("null"), &dataFront);
    OpenStreamEngine pipe(TestProcess::path(QStringLiteral("fifo")), QString(), QStringLiteral("T"),
                          QStringLiteral("null"), &streamFront);
    QVERIFY(data.setupGstPipeline());
    QVERIFY(pipe.setupGstPipeline());
    GstElement* const appsrc = stream ? pipe.appsrc : data.appsrc;
    const LaterHandler later(appsrc, qPrintable(signal));
    gboolean accepted = FALSE;
    if (signal == QLatin1String("seek-data")) {
        g_signal_emit_by_name(appsrc, qPrintable(signal), guint64(0), &accepted);
    } else {
        g_signal_emit_by_name(appsrc, qPrintable(signal), 4);
    }
    QVERIFY2(!later.lines.filter(function).isEmpty(), qPrintable(later.lines.join('\n')));
}

KOVA_TEST(TestOrder)
#include "tst_order.moc"
