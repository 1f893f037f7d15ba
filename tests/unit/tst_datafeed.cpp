#include "unit/DataFixture.h"

#include "kit/GstLeaks.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"

#include <QtTest/QtTest>

#include <functional>
#include <thread>

namespace {

QString needLine(guint length, int overall)
{
    return enterLine("TRACE", "DataSimplePlayerImpl::feedDataCallback",
                     qPrintable(QStringLiteral("size: %1 overall %2").arg(length).arg(overall)));
}

QString pushedLine(int length, int offset, int ret = 0)
{
    return QStringLiteral("TRACE Pushed buffer of size %1 offset %2 , ret: %3")
        .arg(length)
        .arg(offset)
        .arg(ret);
}

} // namespace

/// How the engine that plays from memory answers the requests and seeks of its source.
class TestDataFeed : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void arrayIsFedInChunksAndThenEnds();
    void requestForNothingPushesAnEmptyChunk();
    void chunkThatEndsWithTheArrayIsNotCropped();
    void requestBeyondTheEndGetsTheRest_data();
    void requestBeyondTheEndGetsTheRest();
    void emptyArrayEndsAtTheFirstRequest();
    void seekMovesTheOffset_data();
    void seekMovesTheOffset();
    void seekAtOrPastTheEndEndsTheStream_data();
    void seekAtOrPastTheEndEndsTheStream();
    void endedItemStaysEndedAfterASeek();
    void refusedPushIsReportedEveryTime_data();
    void refusedPushIsReportedEveryTime();
    void refusedPushIsReportedBesideTheOneOutcome();
    void refusedPushIsReportedFromTheThreadOfTheRequest();
    void pushRefusedDuringDestructionIsNotReported();
};

void TestDataFeed::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

void TestDataFeed::arrayIsFedInChunksAndThenEnds()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Outcomes outcomes(&fixture.front);
    const Pushed pushed;
    for (int i = 0; i < 3; ++i) {
        fixture.need(4);
    }
    QCOMPARE(fixture.log.lines(),
             (QStringList{needLine(4, 10), pushedLine(4, 0), needLine(4, 10), pushedLine(4, 4),
                          needLine(4, 10), "DEBUG Cropping to size 2", pushedLine(2, 8)}));
    QCOMPARE(pushed.count(), 3);
    const QByteArrayList chunks{"0123", "4567", "89"};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(pushed.view(i), chunks[i]);
        QCOMPARE(GST_BUFFER_OFFSET(pushed[i]), guint64(4 * i));
        QCOMPARE(GST_BUFFER_OFFSET_END(pushed[i]), guint64(chunks[i].size()));
        QVERIFY(!GST_BUFFER_PTS_IS_VALID(pushed[i]) && !GST_BUFFER_DTS_IS_VALID(pushed[i]) &&
                !GST_BUFFER_DURATION_IS_VALID(pushed[i]));
    }
    QCOMPARE(fixture.engine->offset, quint64(10));
    QCOMPARE(fixture.engine->data.size(), 10);

    fixture.log.clear();
    fixture.need(4);
    QCOMPARE(fixture.log.lines(), (QStringList{needLine(4, 10), "DEBUG EOS sent with ret0"}));
    QVERIFY(fixture.engine->data.isEmpty());
    QCOMPARE(fixture.engine->offset, quint64(10));
    QCOMPARE(pushed.count(), 3);
    QCOMPARE(outcomes.all, QStringList());
    // After the end of the stream the source refuses data.
    QCOMPARE(gst_app_src_push_buffer(GST_APP_SRC(fixture.engine->appsrc), gst_buffer_new()),
             GST_FLOW_EOS);
}

void TestDataFeed::requestForNothingPushesAnEmptyChunk()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Pushed pushed;
    fixture.need(0);
    QCOMPARE(fixture.log.lines(), (QStringList{needLine(0, 10), pushedLine(0, 0)}));
    QCOMPARE(pushed.count(), 1);
    QCOMPARE(pushed.view(0), QByteArray());
    QCOMPARE(fixture.engine->offset, quint64(0));
}

void TestDataFeed::chunkThatEndsWithTheArrayIsNotCropped()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    fixture.need(6);
    fixture.need(4);
    QCOMPARE(fixture.log.lines(),
             (QStringList{needLine(6, 10), pushedLine(6, 0), needLine(4, 10), pushedLine(4, 6)}));
}

void TestDataFeed::requestBeyondTheEndGetsTheRest_data()
{
    QTest::addColumn<quint64>("position");
    QTest::addColumn<uint>("length");
    // The sums of position and length are below 2^32, 2^32 and above it.
    QTest::newRow("all") << quint64(0) << G_MAXUINT;
    QTest::newRow("2^32") << quint64(6) << G_MAXUINT - 5;
    QTest::newRow("2^32 + 2") << quint64(6) << G_MAXUINT - 3;
    QTest::newRow("2^32 + 8") << quint64(9) << G_MAXUINT;
}

void TestDataFeed::requestBeyondTheEndGetsTheRest()
{
    QFETCH(quint64, position);
    QFETCH(uint, length);
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Pushed pushed;
    fixture.seek(position);
    fixture.log.clear();
    fixture.need(length);
    const int rest = tenBytes.size() - int(position);
    QCOMPARE(
        fixture.log.lines(),
        (QStringList{needLine(length, 10), QStringLiteral("DEBUG Cropping to size %1").arg(rest),
                     pushedLine(rest, int(position))}));
    QCOMPARE(pushed.all(), tenBytes.right(rest));
}

void TestDataFeed::emptyArrayEndsAtTheFirstRequest()
{
    DataFixture fixture{QByteArray()};
    QVERIFY(fixture.build());
    const Pushed pushed;
    fixture.need(4);
    QCOMPARE(fixture.log.lines(), (QStringList{needLine(4, 0), "DEBUG EOS sent with ret0"}));
    QCOMPARE(pushed.count(), 0);
}

void TestDataFeed::seekMovesTheOffset_data()
{
    QTest::addColumn<quint64>("position");
    QTest::addColumn<QByteArray>("chunk");
    QTest::newRow("to the beginning") << quint64(0) << QByteArray("012");
    QTest::newRow("backwards") << quint64(2) << QByteArray("234");
    QTest::newRow("forwards") << quint64(6) << QByteArray("678");
    QTest::newRow("to the last byte") << quint64(9) << QByteArray("9");
}

void TestDataFeed::seekMovesTheOffset()
{
    QFETCH(quint64, position);
    QFETCH(QByteArray, chunk);
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    fixture.need(4);
    const Pushed pushed;
    fixture.log.clear();
    QCOMPARE(fixture.seek(position), TRUE);
    QCOMPARE(fixture.log.lines(),
             QStringList{enterLine("TRACE", "DataSimplePlayerImpl::seekDataCallback",
                                   qPrintable(QStringLiteral("pos: %1").arg(position)))});
    QCOMPARE(fixture.engine->offset, position);
    fixture.need(3);
    QCOMPARE(pushed.all(), chunk);
    QCOMPARE(GST_BUFFER_OFFSET(pushed[0]), position);
    QCOMPARE(fixture.engine->offset, position + quint64(chunk.size()));
}

void TestDataFeed::seekAtOrPastTheEndEndsTheStream_data()
{
    QTest::addColumn<quint64>("position");
    QTest::newRow("at the end") << quint64(10);
    QTest::newRow("past the end") << quint64(11);
    // The lower 32 bits of each are a position in the array.
    QTest::newRow("4 GiB") << (quint64(1) << 32);
    QTest::newRow("4 GiB and 6 bytes") << (quint64(1) << 32) + 6;
    QTest::newRow("2^63 and 9 bytes") << (quint64(1) << 63) + 9;
    QTest::newRow("as far as can be") << ~quint64(0);
}

void TestDataFeed::seekAtOrPastTheEndEndsTheStream()
{
    QFETCH(quint64, position);
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Pushed pushed;
    QCOMPARE(fixture.seek(position), TRUE);
    fixture.log.clear();
    fixture.need(4);
    QCOMPARE(fixture.log.lines(), (QStringList{needLine(4, 10), "DEBUG EOS sent with ret0"}));
    QCOMPARE(fixture.engine->offset, position);
    QVERIFY(fixture.engine->data.isEmpty());
    QCOMPARE(pushed.count(), 0);
}

void TestDataFeed::endedItemStaysEndedAfterASeek()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    fixture.seek(10);
    fixture.need(4);
    const Pushed pushed;
    for (quint64 position : {0U, 5U}) {
        QCOMPARE(fixture.seek(position), TRUE);
        fixture.log.clear();
        fixture.need(4);
        QCOMPARE(fixture.log.lines(), (QStringList{needLine(4, 0), "DEBUG EOS sent with ret0"}));
        QCOMPARE(fixture.engine->offset, position);
    }
    QCOMPARE(pushed.count(), 0);
}

/// Makes the source refuse buffers because it is shut down.
static void shutDown(GstElement* appsrc)
{
    gst_element_set_state(appsrc, GST_STATE_PAUSED);
    gst_element_set_state(appsrc, GST_STATE_NULL);
}

/// Makes the source refuse buffers because its stream has ended.
static void endStreamOf(GstElement* appsrc)
{
    gst_app_src_end_of_stream(GST_APP_SRC(appsrc));
}

void TestDataFeed::refusedPushIsReportedEveryTime_data()
{
    QTest::addColumn<bool>("flushing");
    QTest::addColumn<int>("ret");
    QTest::newRow("flushing") << true << -2;
    QTest::newRow("end of stream") << false << -3;
}

void TestDataFeed::refusedPushIsReportedEveryTime()
{
    QFETCH(bool, flushing);
    QFETCH(int, ret);
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Outcomes outcomes(&fixture.front);
    (flushing ? shutDown : endStreamOf)(fixture.engine->appsrc);
    fixture.seek(2);

    QStringList reported;
    for (int i = 0; i < 2; ++i) {
        fixture.log.clear();
        fixture.need(4);
        QCOMPARE(fixture.log.lines(),
                 (QStringList{needLine(4, 10), pushedLine(4, 2, ret),
                              QStringLiteral("ERROR Unable to push buffer, ret: %1").arg(ret)}));
        reported += QStringLiteral("error T: Failed to push buffer");
        QCOMPARE(outcomes.all, reported); // at once, not from the event loop
        QCOMPARE(fixture.engine->offset, quint64(2));
        QCOMPARE(fixture.engine->data.size(), 10);
    }
    QVERIFY(!fixture.engine->endReported);
}

void TestDataFeed::refusedPushIsReportedBesideTheOneOutcome()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.engine->stopPlayback());
    QCoreApplication::processEvents();
    QVERIFY(fixture.engine->endReported);
    endStreamOf(fixture.engine->appsrc);
    fixture.need(4);
    QCOMPARE(outcomes.all, (QStringList{"stopped T", "error T: Failed to push buffer"}));
}

void TestDataFeed::refusedPushIsReportedFromTheThreadOfTheRequest()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Outcomes outcomes(&fixture.front);
    std::thread::id reporter;
    QObject::connect(&fixture.front, &SimplePlayer::playbackErrorReported,
                     [&reporter] { reporter = std::this_thread::get_id(); });
    endStreamOf(fixture.engine->appsrc);

    std::thread streaming([&fixture] { fixture.need(4); });
    const std::thread::id streamingId = streaming.get_id();
    streaming.join();
    QVERIFY(reporter == streamingId);
    // A receiver on this thread is called from this thread's event loop.
    QCOMPARE(outcomes.all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"error T: Failed to push buffer"});
}

// An element that runs a function whenever its state is set, as if a streaming thread were still at
// work.
struct StateHook
{
    GstElement parent;
    std::function<void()>* action;
};

struct StateHookClass
{
    GstElementClass parent;
};

G_DEFINE_TYPE(StateHook, state_hook, GST_TYPE_ELEMENT)

static void state_hook_class_init(StateHookClass* elementClass)
{
    GST_ELEMENT_CLASS(elementClass)->change_state = [](GstElement* element, GstStateChange change) {
        (*reinterpret_cast<StateHook*>(element)->action)();
        return GST_ELEMENT_CLASS(state_hook_parent_class)->change_state(element, change);
    };
}

static void state_hook_init(StateHook*)
{
}

void TestDataFeed::pushRefusedDuringDestructionIsNotReported()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    const Outcomes outcomes(&fixture.front);
    OpenDataEngine* const engine = fixture.engine.get();
    int requests = 0;
    std::function<void()> action = [&requests, engine] {
        ++requests;
        engine->feedDataCallback(4);
    };
    auto* hook = static_cast<StateHook*>(g_object_new(state_hook_get_type(), nullptr));
    hook->action = &action;
    gst_bin_add(GST_BIN(engine->pipeline), &hook->parent);
    endStreamOf(engine->appsrc);
    hook->parent.current_state = GST_STATE_READY; // so that it has a way to go
    fixture.log.clear();

    fixture.engine.reset();
    QCOMPARE(requests, 1);
    // The request came before the base began to release the pipeline.
    QCOMPARE(fixture.log.lines().mid(0, 3), (QStringList{needLine(4, 10), pushedLine(4, 0, -3),
                                                         "ERROR Unable to push buffer, ret: -3"}));
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestDataFeed)
#include "tst_datafeed.moc"
