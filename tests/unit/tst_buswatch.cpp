#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtTest/QtTest>

#include <memory>

/// What the engine makes of the messages of its pipeline's bus.
class TestBusWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void errorReleasesThePipelineAndReportsItsText();
    void errorWithoutTextIsUnknown_data();
    void errorWithoutTextIsUnknown();
    void errorTextIsPassedOnAsItIs();
    void errorWithMessagesQueuedBehindItReportsOnce();
    void errorRemovesTheWatch();
    void stopAfterErrorIsDroppedAsNotInitialized();

    void endOfStreamIsReportedAsEndAndKeepsThePipeline();
    void endOfStreamRestartsALoopingPlayer();
    void endOfStreamIsReportedWhenTheRestartFails();
    void loopIsLookedAtWhenTheStreamEnds();
    void errorThenEndOfStreamReportsTheError();

    void stateChangeOfThePipelineIsLogged();
    void stateChangeInsideThePipelineIsIgnored();
    void stateChangeWithoutSourceIsIgnored();
    void realStartLogsThreeStateChanges();

    void otherMessagesAreIgnored_data();
    void otherMessagesAreIgnored();
    void watchAlwaysStaysInstalled();
    void watchForwardsToItsEngine();

    void clientMayEndThePlaybackInsideEverySlot_data();
    void clientMayEndThePlaybackInsideEverySlot();

private:
    /// Hands a message to the watch as the bus would; takes the reference.
    void handle(GstMessage* message);
    GstObject* pipeline() const { return GST_OBJECT(player->engine->pipeline); }

    std::unique_ptr<LogCapture> log;
    std::unique_ptr<TestPlayer> player;
    std::unique_ptr<Outcomes> outcomes;
};

void TestBusWatch::init()
{
    log = std::make_unique<LogCapture>();
    player = std::make_unique<TestPlayer>();
    outcomes = std::make_unique<Outcomes>(player.get());
    // A pipeline that posts nothing of its own accord.
    player->engine->build = [](GstElement*) { return true; };
    QVERIFY(player->engine->setupGstPipeline());
    // Only a pipeline that has left NULL flushes its bus when it returns there.
    QCOMPARE(gst_element_set_state(player->engine->pipeline, GST_STATE_READY),
             GST_STATE_CHANGE_SUCCESS);
    QCoreApplication::processEvents();
    log->clear();
}

void TestBusWatch::cleanup()
{
    player.reset();
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(leakedGstObjects(), QString());
}

void TestBusWatch::handle(GstMessage* message)
{
    QVERIFY(SimplePlayerImpl::staticBusWatch(nullptr, message, player->engine));
    gst_message_unref(message);
}

void TestBusWatch::errorReleasesThePipelineAndReportsItsText()
{
    handle(errorMessage(pipeline(), "it broke"));
    QVERIFY(!player->engine->pipeline);
    QCOMPARE(log->lines(), QStringList{"ERROR GStreamer error received: it broke token: T"} +
                               releasing() + QStringList{"DEBUG token: T"});
    QCOMPARE(outcomes->all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"error T: it broke"});
}

void TestBusWatch::errorWithoutTextIsUnknown_data()
{
    QTest::addColumn<bool>("hasError");
    QTest::addColumn<bool>("hasText");
    QTest::newRow("empty text") << true << true;
    QTest::newRow("null text") << true << false;
    QTest::newRow("no error at all") << false << false;
}

/// Ignores GLib's refusal to copy an error without a text. @return a handler of the log
static guint ignoreRefusedCopies()
{
    const auto handle = [](const gchar* domain, GLogLevelFlags level, const gchar* message,
                           gpointer) {
        if (!QByteArray(message).contains("error->message != NULL")) {
            qFatal("%s %d: %s", domain, level, message);
        }
    };
    return g_log_set_handler("GLib", G_LOG_LEVEL_CRITICAL, handle, nullptr);
}

void TestBusWatch::errorWithoutTextIsUnknown()
{
    QFETCH(bool, hasError);
    QFETCH(bool, hasText);
    // GLib refuses to make such errors, but an element can still post one. Later versions of GLib
    // also refuse to copy one without a text, with a critical.
    const guint critical = hasError && !hasText ? ignoreRefusedCopies() : 0;
    GError* error = nullptr;
    if (hasError) {
        error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "");
        if (!hasText) {
            g_free(error->message);
            error->message = nullptr;
        }
    }
    GstStructure* details = gst_structure_new_empty("GstMessageError");
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_ERROR);
    g_value_take_boxed(&value, error);
    gst_structure_take_value(details, "gerror", &value);
    handle(gst_message_new_custom(GST_MESSAGE_ERROR, pipeline(), details));
    if (critical != 0) {
        g_log_remove_handler("GLib", critical);
    }
    QCOMPARE(log->texts("ERROR"), QStringList{"GStreamer error received: Unknown error token: T"});
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"error T: Unknown error"});
}

void TestBusWatch::errorTextIsPassedOnAsItIs()
{
    handle(errorMessage(nullptr, " gr\xc3\xbc\xc3\x9f\n")); // UTF-8
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{QString::fromUtf8("error T:  gr\xc3\xbc\xc3\x9f\n")});
}

void TestBusWatch::errorWithMessagesQueuedBehindItReportsOnce()
{
    GstBus* bus = gst_element_get_bus(player->engine->pipeline);
    gst_bus_post(bus, errorMessage(pipeline(), "first"));
    gst_bus_post(bus, errorMessage(pipeline(), "second"));
    gst_bus_post(bus, gst_message_new_eos(pipeline()));
    gst_bus_post(bus, gst_message_new_custom(GST_MESSAGE_APPLICATION, pipeline(), nullptr));
    QTRY_COMPARE_WITH_TIMEOUT(outcomes->all, QStringList{"error T: first"}, patience);
    QVERIFY(!gst_bus_have_pending(bus));
    gst_object_unref(bus);
    QCOMPARE(log->texts("ERROR"), QStringList{"GStreamer error received: first token: T"});
}

void TestBusWatch::errorRemovesTheWatch()
{
    GstBus* bus = gst_element_get_bus(player->engine->pipeline);
    handle(errorMessage(nullptr, "broken"));
    // The bus is flushing by now; open it again to see that it has no watch any more.
    gst_bus_set_flushing(bus, FALSE);
    gst_bus_post(bus, errorMessage(nullptr, "late"));
    QCoreApplication::processEvents();
    QVERIFY(gst_bus_have_pending(bus));
    QVERIFY(!gst_bus_remove_watch(bus));
    gst_object_unref(bus);
    QCOMPARE(outcomes->all, QStringList{"error T: broken"});
}

void TestBusWatch::stopAfterErrorIsDroppedAsNotInitialized()
{
    handle(errorMessage(nullptr, "broken"));
    QVERIFY(!player->stopPlayback());
    QCOMPARE(log->texts("ERROR").last(), notStopping);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"error T: broken"});
    QCOMPARE(log->texts("DEBUG").last(), alreadyReported);
}

void TestBusWatch::endOfStreamIsReportedAsEndAndKeepsThePipeline()
{
    const GstObject* before = pipeline();
    const QSignalSpy reports(player->engine, &SimplePlayerImpl::sendPlaybackEnded);
    handle(gst_message_new_eos(pipeline()));
    QCOMPARE(pipeline(), before);
    QCOMPARE(log->lines(),
             (QStringList{"TRACE EOS received at gst busT",
                          "TRACE reporting playback end due to EOS", "DEBUG token: T"}));
    QCOMPARE(player->engine->restarts, 0);
    QVERIFY(reports.value(0).value(1).toString().isNull());
    QCOMPARE(outcomes->all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"ended T"});
}

void TestBusWatch::endOfStreamRestartsALoopingPlayer()
{
    player->loop = true;
    player->engine->restart = [] { return true; };
    handle(gst_message_new_eos(pipeline()));
    QCOMPARE(player->engine->restarts, 1);
    QCOMPARE(log->lines(),
             (QStringList{"TRACE EOS received at gst busT", "TRACE Looping playbackT"}));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList());
}

void TestBusWatch::endOfStreamIsReportedWhenTheRestartFails()
{
    player->loop = true;
    player->engine->restart = [] { return false; };
    handle(gst_message_new_eos(pipeline()));
    QCOMPARE(player->engine->restarts, 1);
    QCOMPARE(log->lines(),
             (QStringList{"TRACE EOS received at gst busT",
                          "TRACE reporting playback end due to EOS", "DEBUG token: T"}));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"ended T"});
}

void TestBusWatch::loopIsLookedAtWhenTheStreamEnds()
{
    player->loop = true;
    player->engine->restart = [] { return true; };
    handle(gst_message_new_eos(pipeline()));
    player->loop = false;
    handle(gst_message_new_eos(pipeline()));
    QCOMPARE(player->engine->restarts, 1);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"ended T"});
}

void TestBusWatch::errorThenEndOfStreamReportsTheError()
{
    handle(errorMessage(nullptr, "broken"));
    handle(gst_message_new_eos(nullptr));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList{"error T: broken"});
}

void TestBusWatch::stateChangeOfThePipelineIsLogged()
{
    const QString name = QString::fromUtf8(GST_OBJECT_NAME(pipeline()));
    handle(gst_message_new_state_changed(pipeline(), GST_STATE_READY, GST_STATE_PAUSED,
                                         GST_STATE_PLAYING));
    QCOMPARE(log->lines(),
             QStringList{QStringLiteral("TRACE GStreamer state change:   src: %1 old: READY new: "
                                        "PAUSED pending: PLAYING")
                             .arg(name)});
}

void TestBusWatch::stateChangeInsideThePipelineIsIgnored()
{
    GstElement* inner = gst_element_factory_make("fakesink", nullptr);
    gst_bin_add(GST_BIN(player->engine->pipeline), inner);
    handle(gst_message_new_state_changed(GST_OBJECT(inner), GST_STATE_READY, GST_STATE_PAUSED,
                                         GST_STATE_VOID_PENDING));
    QCOMPARE(log->lines(), QStringList());
}

void TestBusWatch::stateChangeWithoutSourceIsIgnored()
{
    handle(gst_message_new_state_changed(nullptr, GST_STATE_NULL, GST_STATE_READY,
                                         GST_STATE_VOID_PENDING));
    QCOMPARE(log->lines(), QStringList());
    // Nor is a missing pipeline mistaken for the source of such a message.
    player->engine->releaseGstPipeline();
    log->clear();
    handle(gst_message_new_state_changed(nullptr, GST_STATE_NULL, GST_STATE_READY,
                                         GST_STATE_VOID_PENDING));
    QCOMPARE(log->lines(), QStringList());
}

void TestBusWatch::realStartLogsThreeStateChanges()
{
    TestPlayer real(QStringLiteral("R"));
    real.startPlayback();
    QTRY_VERIFY_WITH_TIMEOUT(log->texts("TRACE").filter("GStreamer state change:").size() >= 3,
                             patience);
    const QString name = QString::fromUtf8(GST_OBJECT_NAME(real.engine->pipeline));
    const QString start = QStringLiteral("GStreamer state change:   src: %1 old: ").arg(name);
    QCOMPARE(log->texts("TRACE").filter("GStreamer state change:"),
             (QStringList{start + "NULL new: READY pending: PLAYING",
                          start + "READY new: PAUSED pending: PLAYING",
                          start + "PAUSED new: PLAYING pending: VOID_PENDING"}));
    log->clear();
    real.stopPlayback();
    QCoreApplication::processEvents();
    QCOMPARE(log->texts("TRACE").filter("GStreamer state change:"), QStringList());
}

void TestBusWatch::otherMessagesAreIgnored_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("warning") << int(GST_MESSAGE_WARNING);
    QTest::newRow("info") << int(GST_MESSAGE_INFO);
    QTest::newRow("buffering") << int(GST_MESSAGE_BUFFERING);
    QTest::newRow("tag") << int(GST_MESSAGE_TAG);
    QTest::newRow("stream start") << int(GST_MESSAGE_STREAM_START);
    QTest::newRow("async done") << int(GST_MESSAGE_ASYNC_DONE);
    QTest::newRow("clock lost") << int(GST_MESSAGE_CLOCK_LOST);
    QTest::newRow("element") << int(GST_MESSAGE_ELEMENT);
    QTest::newRow("request state") << int(GST_MESSAGE_REQUEST_STATE);
}

void TestBusWatch::otherMessagesAreIgnored()
{
    QFETCH(int, type);
    handle(gst_message_new_custom(static_cast<GstMessageType>(type), pipeline(), nullptr));
    QCOMPARE(log->lines(), QStringList());
    QVERIFY(player->engine->pipeline);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all, QStringList());
}

void TestBusWatch::watchAlwaysStaysInstalled()
{
    // handle() asserts it for each of the messages above; here, through the bus itself.
    GstBus* bus = gst_element_get_bus(player->engine->pipeline);
    player->loop = true;
    player->engine->restart = [] { return true; };
    for (int turn = 1; turn <= 3; ++turn) {
        gst_bus_post(bus, gst_message_new_eos(nullptr));
        QTRY_COMPARE_WITH_TIMEOUT(player->engine->restarts, turn, patience);
    }
    gst_object_unref(bus);
}

void TestBusWatch::watchForwardsToItsEngine()
{
    TestPlayer other(QStringLiteral("other"));
    GstMessage* message = gst_message_new_eos(nullptr);
    QVERIFY(SimplePlayerImpl::staticBusWatch(nullptr, message, other.engine));
    gst_message_unref(message);
    QVERIFY(log->texts("TRACE").contains("EOS received at gst busother"));
}

void TestBusWatch::clientMayEndThePlaybackInsideEverySlot_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("reaction");
    for (const char* message : {"error", "end"}) {
        for (const char* reaction : {"start", "stop", "deleteLater", "delete"}) {
            QTest::addRow("%s, %s", message, reaction) << message << reaction;
        }
    }
}

void TestBusWatch::clientMayEndThePlaybackInsideEverySlot()
{
    QFETCH(QString, message);
    QFETCH(QString, reaction);
    TestPlayer* client = player.release();
    outcomes->inSlot = [client, reaction] {
        if (reaction == "start") {
            client->startPlayback();
        } else if (reaction == "stop") {
            client->stopPlayback();
        } else if (reaction == "deleteLater") {
            client->deleteLater();
        } else {
            delete client;
        }
    };
    const QPointer<TestPlayer> guard(client);
    GstBus* bus = gst_element_get_bus(client->engine->pipeline);
    gst_bus_post(bus, message == "error" ? errorMessage(nullptr, "broken")
                                         : gst_message_new_eos(nullptr));
    gst_bus_post(bus, gst_message_new_eos(nullptr)); // waits behind the first
    gst_object_unref(bus);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes->all.size(), 1, patience);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes->all.size(), 1);
    if (reaction.startsWith("delete")) {
        QTRY_VERIFY_WITH_TIMEOUT(!guard, patience);
    } else {
        delete client;
    }
}

KOVA_TEST(TestBusWatch)
#include "tst_buswatch.moc"
