#include "unit/StreamFixture.h"

#include "kit/GstFaults.h"
#include "kit/GstLeaks.h"
#include "kit/Outcomes.h"
#include "kit/PipeWriter.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtTest/QtTest>

#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <functional>
#include <thread>

/// The reader of the stream engine's named pipe: its data, its end, and what enables it.
class TestStreamReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void bytesBeforeTheStartCloseThePipeForGood();
    void blocksAreReadOneForEachActivation();
    void blocksArriveUnchanged();
    void endOfTheWriterEndsTheStream();
    void failedReadEndsTheStreamToo();
    void refusedPushIsReported_data();
    void refusedPushIsReported();
    void refusedEndIsReported();
    void notificationAfterTheCloseIsIgnored();
    void feedFromTheSameThreadActsAtOnce();
    void feedFromAnotherThreadIsQueued();
    void readerFollowsItsStates_data();
    void readerFollowsItsStates();
    void writerStaysBlockedAfterABusError_data();
    void writerStaysBlockedAfterABusError();
    void startAfterABusErrorContinuesReading_data();
    void startAfterABusErrorContinuesReading();
};

void TestStreamReader::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

void TestStreamReader::bytesBeforeTheStartCloseThePipeForGood()
{
    StreamFixture fixture;
    fixture.write("early");
    QTRY_COMPARE_WITH_TIMEOUT(fixture.engine->reader(), QStringLiteral("ended"), patience);
    QStringList lines = fixture.lines();
    QVERIFY(lines.takeFirst().startsWith(
        "TRACE Enter SimplePlayer StreamSimplePlayerImpl::on_readPipeNotifier_activated: sock: "));
    QCOMPARE(lines, QStringList{"TRACE Gst pipeline was removed, not processing data"} + closing() +
                        QStringList{leaveTrace("on_readPipeNotifier_activated", "token T")});
    QVERIFY(fixture.engine->setupGstPipeline());
    QCOMPARE(fixture.engine->reader(), QStringLiteral("ended"));
    QVERIFY(QFile::exists(fixture.path)); // for the writer it stays where it is
}

void TestStreamReader::blocksAreReadOneForEachActivation()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.write(QByteArray(10000, 'x'));
    fixture.log.clear();
    // The source was never started, so that it keeps what it is given.
    fixture.engine->activate();
    QCOMPARE(fixture.lines(),
             (QStringList{enterTrace("on_readPipeNotifier_activated", "sock: 7 token: T"),
                          "TRACE Pushed buffer of size 4096, ret: 0",
                          leaveTrace("on_readPipeNotifier_activated")}));
    QCOMPARE(fixture.engine->reader(), QStringLiteral("reading"));
    QCOMPARE(gst_app_src_get_current_level_bytes(GST_APP_SRC(fixture.engine->appsrc)),
             guint64(4096));
    fixture.log.clear();
    // With a block queued already the source asks, inside the push, to hold the reader.
    fixture.engine->activate();
    QCOMPARE(
        fixture.lines(),
        (QStringList{enterTrace("on_readPipeNotifier_activated", "sock: 7 token: T"),
                     enterTrace("on_receiveNewData", "read: 0 token: T"),
                     leaveTrace("on_receiveNewData"), "TRACE Pushed buffer of size 4096, ret: 0",
                     leaveTrace("on_readPipeNotifier_activated")}));
    QCOMPARE(fixture.engine->reader(), QStringLiteral("blocked"));
    fixture.log.clear();
    fixture.engine->activate();
    QVERIFY(fixture.lines().contains("TRACE Pushed buffer of size 1808, ret: 0"));
    QCOMPARE(gst_app_src_get_current_level_bytes(GST_APP_SRC(fixture.engine->appsrc)),
             guint64(10000));
}

namespace {

/// What leaves a source, with the sizes of the buffers. Read it when the stream has ended.
struct Passed
{
    QByteArray bytes;
    QList<int> sizes;
    bool timesSet = false;
    QAtomicInt ended = 0;

    void watch(GstElement* source)
    {
        GstPad* pad = gst_element_get_static_pad(source, "src");
        gst_pad_add_probe(
            pad, GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
            probe, this, nullptr);
        gst_object_unref(pad);
    }

    static GstPadProbeReturn probe(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data)
    {
        static_cast<Passed*>(data)->take(info);
        return GST_PAD_PROBE_OK;
    }

    void take(GstPadProbeInfo* info)
    {
        if (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) {
            GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
            GstMapInfo map;
            gst_buffer_map(buffer, &map, GST_MAP_READ);
            bytes.append(reinterpret_cast<const char*>(map.data), int(map.size));
            sizes.append(int(map.size));
            gst_buffer_unmap(buffer, &map);
            timesSet = timesSet || GST_BUFFER_PTS_IS_VALID(buffer) ||
                       GST_BUFFER_DTS_IS_VALID(buffer) || GST_BUFFER_DURATION_IS_VALID(buffer) ||
                       GST_BUFFER_OFFSET_IS_VALID(buffer) || GST_BUFFER_OFFSET_END_IS_VALID(buffer);
        } else if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_EOS) {
            ended.storeRelease(1);
        }
    }
};

} // namespace

void TestStreamReader::blocksArriveUnchanged()
{
    QByteArray bytes;
    for (int i = 0; i < 10000; ++i) {
        bytes.append(char(i * 7 + i / 256));
    }
    const ReplacedFactory replaced("decodebin", "fakesink");
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    Passed passed;
    passed.watch(fixture.engine->appsrc);
    // Another process writes, and the notifier alone drives the reader.
    QVERIFY(fixture.engine->startPlayback());
    // The chain's sink never gets a sample: the pipeline as a whole stays on its way to PAUSED.
    gst_element_set_state(fixture.engine->decodebin, GST_STATE_PLAYING);
    PipeWriter writer(fixture.path, bytes);
    QTRY_VERIFY_WITH_TIMEOUT(passed.ended.loadAcquire() == 1, patience);
    QVERIFY(writer.waitForFinished());
    QVERIFY(passed.bytes == bytes);
    QVERIFY(*std::max_element(passed.sizes.begin(), passed.sizes.end()) <= 4096);
    QVERIFY(!passed.timesSet);
    QTRY_COMPARE_WITH_TIMEOUT(fixture.engine->reader(), QStringLiteral("ended"), patience);
    QVERIFY(fixture.engine->stopPlayback());
}

void TestStreamReader::endOfTheWriterEndsTheStream()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.write("x");
    fixture.engine->activate();
    fixture.writer.reset();
    fixture.log.clear();
    fixture.engine->activate();
    QCOMPARE(fixture.lines(),
             QStringList{enterTrace("on_readPipeNotifier_activated", "sock: 7 token: T")} +
                 QStringList{"DEBUG read: 0, closing pipe t:T"} + closing() +
                 QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QCOMPARE(fixture.engine->reader(), QStringLiteral("ended"));
    // A second end is refused by a source that has one already.
    QCOMPARE(gst_app_src_push_buffer(GST_APP_SRC(fixture.engine->appsrc), gst_buffer_new()),
             GST_FLOW_EOS);
    QVERIFY(QFile::exists(fixture.path));
}

void TestStreamReader::failedReadEndsTheStreamToo()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.write("x");
    fixture.engine->activate();
    fixture.log.clear();
    fixture.engine->activate(); // a writer is there and has written nothing: -EAGAIN
    QCOMPARE(fixture.lines().mid(1),
             QStringList{QStringLiteral("DEBUG read: %1, closing pipe t:T").arg(-EAGAIN)} +
                 closing() + QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QCOMPARE(fixture.engine->reader(), QStringLiteral("ended"));
}

/// Has the source refuse everything from now on, as one does whose pipeline was stopped.
static void makeFlushing(OpenEngine& engine)
{
    gst_element_set_state(engine.appsrc, GST_STATE_PAUSED);
    gst_element_set_state(engine.appsrc, GST_STATE_NULL);
    // The start had asked for data.
    QCoreApplication::processEvents();
}

void TestStreamReader::refusedPushIsReported_data()
{
    QTest::addColumn<bool>("flushing");
    QTest::addColumn<int>("ret");
    QTest::newRow("flushing") << true << int(GST_FLOW_FLUSHING);
    QTest::newRow("end of stream") << false << int(GST_FLOW_EOS);
}

void TestStreamReader::refusedPushIsReported()
{
    QFETCH(bool, flushing);
    QFETCH(int, ret);
    StreamFixture fixture;
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.engine->setupGstPipeline());
    if (flushing) {
        makeFlushing(*fixture.engine);
    } else {
        gst_app_src_end_of_stream(GST_APP_SRC(fixture.engine->appsrc));
    }
    fixture.write("four");
    fixture.log.clear();
    fixture.engine->activate();
    QCOMPARE(fixture.lines().mid(1),
             QStringList{QStringLiteral("TRACE Pushed buffer of size 4, ret: %1").arg(ret)} +
                 QStringList{QStringLiteral("ERROR Unable to push buffer, ret: %1").arg(ret)} +
                 releasing() + QStringList{"DEBUG token: T"} + closing() +
                 QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QVERIFY(!fixture.engine->pipeline);
    QCOMPARE(fixture.engine->reader(), QStringLiteral("ended"));
    QCOMPARE(outcomes.all, QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Failed to push buffer"},
                              patience);
}

void TestStreamReader::refusedEndIsReported()
{
    StreamFixture fixture;
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.engine->setupGstPipeline());
    makeFlushing(*fixture.engine);
    fixture.log.clear();
    fixture.engine->activate(); // no writer: reads 0
    QCOMPARE(fixture.lines().mid(1), QStringList{"DEBUG read: 0, closing pipe t:T"} +
                                         QStringList{"ERROR Failed to flush pipeline"} +
                                         releasing() + QStringList{"DEBUG token: T"} + closing() +
                                         QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QVERIFY(!fixture.engine->pipeline);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Failed to flush pipeline"},
                              patience);
}

void TestStreamReader::notificationAfterTheCloseIsIgnored()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.engine->closeReadPipe();
    fixture.log.clear();
    fixture.engine->activate(-1);
    QCOMPARE(fixture.lines(),
             (QStringList{enterTrace("on_readPipeNotifier_activated", "sock: -1 token: T"),
                          "TRACE Named read pipeline was removed, not processing data",
                          leaveTrace("on_readPipeNotifier_activated", "token T")}));
    // Without a pipeline, either, that comes first.
    fixture.engine->releaseGstPipeline();
    fixture.log.clear();
    fixture.engine->activate();
    QCOMPARE(fixture.lines().mid(1),
             QStringList{"TRACE Gst pipeline was removed, not processing data"} + closing() +
                 QStringList{leaveTrace("on_readPipeNotifier_activated", "token T")});
}

// ---- Feed --------------------------------------------------------------------------------------

static void emitFeed(OpenEngine& engine, bool need)
{
    if (need) {
        g_signal_emit_by_name(engine.appsrc, "need-data", 4096U);
    } else {
        g_signal_emit_by_name(engine.appsrc, "enough-data");
    }
}

void TestStreamReader::feedFromTheSameThreadActsAtOnce()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    for (const bool need : {false, false, true, true}) {
        fixture.log.clear();
        emitFeed(*fixture.engine, need);
        QCOMPARE(fixture.log.lines(),
                 (QStringList{enterTrace("on_receiveNewData",
                                         QStringLiteral("read: %1 token: T").arg(int(need))),
                              leaveTrace("on_receiveNewData")}));
        QCOMPARE(fixture.engine->reader(),
                 need ? QStringLiteral("reading") : QStringLiteral("blocked"));
    }
}

void TestStreamReader::feedFromAnotherThreadIsQueued()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.log.clear();
    std::thread([&fixture] {
        emitFeed(*fixture.engine, false);
        emitFeed(*fixture.engine, false);
    }).join();
    QCOMPARE(fixture.engine->reader(), QStringLiteral("reading"));
    QCOMPARE(fixture.log.lines(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.log.lines().size(), 4, patience); // one call for each signal
    QCOMPARE(fixture.engine->reader(), QStringLiteral("blocked"));
    std::thread([&fixture] { emitFeed(*fixture.engine, true); }).join();
    QCOMPARE(fixture.engine->reader(), QStringLiteral("blocked"));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.engine->reader(), QStringLiteral("reading"), patience);
}

/// Posts an error as an element does, and waits until the engine has reported the outcome.
static void postError(StreamFixture& fixture)
{
    const Outcomes outcomes(&fixture.front);
    gst_element_post_message(fixture.engine->pipeline, errorMessage(nullptr, "no sound"));
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: no sound"}, patience);
}

namespace {

/// What may happen to a reader, by name. The pipeline was built and not started.
const QMap<QString, std::function<void(StreamFixture&)>> events{
    {"need-data", [](StreamFixture& fixture) { fixture.engine->receive(true); }},
    {"enough-data", [](StreamFixture& fixture) { fixture.engine->receive(false); }},
    {"data",
     [](StreamFixture& fixture) {
         if (fixture.engine->pipe) {
             fixture.write("data");
         }
         fixture.engine->activate();
     }},
    {"refused data",
     [](StreamFixture& fixture) {
         gst_app_src_end_of_stream(GST_APP_SRC(fixture.engine->appsrc));
         events["data"](fixture);
     }},
    {"end of data", [](StreamFixture& fixture) { fixture.engine->activate(); }},
    {"no data",
     [](StreamFixture& fixture) {
         events["data"](fixture);
         fixture.engine->activate();
     }},
    {"pause", [](StreamFixture& fixture) { QVERIFY(fixture.engine->pausePlayback()); }},
    {"bus error", [](StreamFixture& fixture) { postError(fixture); }},
    {"bus error and need-data",
     [](StreamFixture& fixture) {
         postError(fixture);
         fixture.engine->receive(true);
     }},
    {"data without a pipeline",
     [](StreamFixture& fixture) {
         fixture.engine->releaseGstPipeline();
         events["data"](fixture);
     }},
    {"stop", [](StreamFixture& fixture) { QVERIFY(fixture.engine->stopPlayback()); }},
    {"stop and start",
     [](StreamFixture& fixture) {
         QVERIFY(fixture.engine->stopPlayback());
         QVERIFY(fixture.engine->startPlayback());
     }},
    {"close", [](StreamFixture& fixture) { fixture.engine->closeReadPipe(); }},
    {"destruction", [](StreamFixture& fixture) { fixture.engine.reset(); }},
};

} // namespace

void TestStreamReader::readerFollowsItsStates_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("event");
    QTest::addColumn<QString>("to");
    const auto row = [](const QString& from, const QString& event, const QString& to) {
        QTest::newRow(qPrintable(from + ", " + event)) << from << event << to;
    };
    const QStringList all = events.keys();
    for (const QString& event : all) {
        row("closed", event, "ended");
        row("ended", event, "ended");
    }
    for (const QString& from : {QStringLiteral("reading"), QStringLiteral("blocked")}) {
        row(from, "need-data", "reading");
        row(from, "enough-data", "blocked");
        row(from, "pause", from);
        row(from, "bus error", from);
        row(from, "bus error and need-data", "reading");
        for (const char* event : {"stop", "stop and start", "close", "destruction"}) {
            row(from, event, "ended");
        }
    }
    row("reading", "data", "reading");
    for (const char* event :
         {"refused data", "end of data", "no data", "data without a pipeline"}) {
        row("reading", event, "ended");
    }
}

void TestStreamReader::readerFollowsItsStates()
{
    QFETCH(QString, from);
    QFETCH(QString, event);
    QFETCH(QString, to);
    const bool closed = from == "closed";
    StreamFixture fixture(QString(), closed ? QString() : newFifoPath());
    QVERIFY(fixture.engine->setupGstPipeline());
    if (from == "blocked") {
        fixture.engine->receive(false);
    } else if (from == "ended") {
        fixture.engine->closeReadPipe();
    }
    QCOMPARE(fixture.reader(), closed ? QStringLiteral("ended") : from);
    events[event](fixture);
    QCOMPARE(fixture.reader(), to);
    QCOMPARE(hasReader(fixture.path), to != "ended");
}

void TestStreamReader::writerStaysBlockedAfterABusError_data()
{
    QTest::addColumn<bool>("stop");
    QTest::newRow("stop") << true;
    QTest::newRow("destruction") << false;
}

void TestStreamReader::writerStaysBlockedAfterABusError()
{
    QFETCH(bool, stop);
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.engine->receive(false);
    // More than a pipe holds.
    PipeWriter writer(fixture.path, QByteArray(1 << 20, 'x'));
    QVERIFY(writer.waitForOpened());
    postError(fixture);
    QVERIFY(!fixture.engine->pipeline);
    QCOMPARE(fixture.reader(), QStringLiteral("blocked"));
    QVERIFY(writer.isRunning());
    if (stop) {
        QVERIFY(!fixture.engine->stopPlayback());
    } else {
        fixture.engine.reset();
    }
    QVERIFY(!writer.waitForFinished()); // it could not write everything
    QVERIFY(!writer.isRunning());
}

/// The elements that an engine points to.
static QVector<GstElement*> membersOf(const OpenEngine& engine)
{
    return {engine.appsrc, engine.decodebin, engine.queue, engine.sink};
}

void TestStreamReader::startAfterABusErrorContinuesReading_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("behind");
    QTest::newRow("blocked") << QByteArray("before") << QByteArray(" and behind");
    QTest::newRow("quiet") << QByteArray() << QByteArray("behind");
}

void TestStreamReader::startAfterABusErrorContinuesReading()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, behind);
    const ReplacedFactory replaced("decodebin", "fakesink");
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    if (!before.isEmpty()) {
        fixture.engine->receive(false);
        fixture.write(before);
    }
    // While they exist, no new element has one of their addresses.
    const QVector<GstElement*> old = membersOf(*fixture.engine);
    std::for_each(old.begin(), old.end(), gst_object_ref);
    postError(fixture);
    QVERIFY(!fixture.engine->pipeline);
    QVERIFY(fixture.engine->startPlayback());
    for (GstElement* member : membersOf(*fixture.engine)) {
        QVERIFY(!old.contains(member));
        QCOMPARE(GST_OBJECT_PARENT(member), GST_OBJECT(fixture.engine->pipeline));
    }
    std::for_each(old.begin(), old.end(), gst_object_unref);
    Passed passed;
    passed.watch(fixture.engine->appsrc);
    // The chain's sink never gets a sample: the pipeline as a whole stays on its way to PAUSED.
    gst_element_set_state(fixture.engine->decodebin, GST_STATE_PLAYING);
    fixture.write(behind);
    fixture.writer.reset();
    QTRY_VERIFY_WITH_TIMEOUT(passed.ended.loadAcquire() == 1, patience);
    QVERIFY(passed.bytes == before + behind);
    QCOMPARE(fixture.reader(), QStringLiteral("ended"));
    QVERIFY(fixture.engine->stopPlayback());
}

KOVA_TEST(TestStreamReader)
#include "tst_streamreader.moc"
