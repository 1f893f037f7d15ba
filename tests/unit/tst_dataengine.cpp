#include "unit/DataFixture.h"

#include "kit/GstFaults.h"
#include "kit/GstLeaks.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"

#include <QtTest/QtTest>

#include <vector>

namespace {

/// Where the bytes of an array are. No char pointer: of those, QCOMPARE compares the text.
const void* placeOf(const QByteArray& bytes)
{
    return bytes.constData();
}

/// Ten bytes in an array without other references.
QByteArray makeTenBytes()
{
    return QByteArray(tenBytes.constData(), tenBytes.size());
}

bool isLinked(GstElement* element, const char* padName)
{
    GstPad* pad = gst_element_get_static_pad(element, padName);
    const bool linked = gst_pad_is_linked(pad);
    gst_object_unref(pad);
    return linked;
}

} // namespace

/// Construction, pipeline, memory and destruction of the engine that plays from memory.
class TestDataEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void constructionSharesTheArrayAndLogsNothingMore();
    void emptyArrayIsLoggedOnceAtConstruction_data();
    void emptyArrayIsLoggedOnceAtConstruction();

    void sourceKnowsTheSizeAndNoCaps_data();
    void sourceKnowsTheSizeAndNoCaps();
    void newPipelineGoesOnAtTheSameOffset();
    void decoderThatCannotBeLinkedEndsTheBuilding();

    void chunkIsAReadOnlyViewOfTheArray();
    void arrayIsCopiedOnceIfItIsShared_data();
    void arrayIsCopiedOnceIfItIsShared();
    void callerMayChangeItsArrayAfterTheFirstChunk();
    void chunksOutliveTheEndAndTheEngine();
    void arrayIsFreeWhenTheLastChunkIsGone();

    void destructorLogsWhatTheBaseLogs();
};

void TestDataEngine::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- Construction ------------------------------------------------------------------------------

void TestDataEngine::constructionSharesTheArrayAndLogsNothingMore()
{
    LogCapture log;
    DataSimplePlayer front("unused", QStringLiteral("front"), QString());
    log.clear();
    const QByteArray bytes = makeTenBytes();
    const OpenDataEngine engine(bytes, QStringLiteral("T"), QStringLiteral("device"), &front);
    QCOMPARE(
        log.lines(),
        (QStringList{enterLine("TRACE", "SimplePlayerImpl::SimplePlayerImpl", "constructor T"),
                     leaveLine("TRACE", "SimplePlayerImpl::SimplePlayerImpl", "constructor T")}));
    QCOMPARE(engine.dataPlayer, &front);
    QCOMPARE(engine.player, &front);
    QCOMPARE(engine.parent(), &front);
    QCOMPARE(engine.token, QStringLiteral("T"));
    QCOMPARE(engine.device, QStringLiteral("device"));
    QVERIFY(!engine.pipeline && !engine.initialized && !engine.endReported);
    QVERIFY(!engine.appsrc && !engine.decodebin && !engine.queue && !engine.sink);
    QCOMPARE(engine.offset, quint64(0));
    QCOMPARE(placeOf(engine.data), placeOf(bytes));
    QCOMPARE(engine.data.size(), 10);
}

void TestDataEngine::emptyArrayIsLoggedOnceAtConstruction_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("null") << QByteArray();
    QTest::newRow("empty") << QByteArray("");
}

void TestDataEngine::emptyArrayIsLoggedOnceAtConstruction()
{
    QFETCH(QByteArray, bytes);
    const QStringList message{"Empty data provided for playback, the player will not play"};
    LogCapture log;
    DataSimplePlayer front("unused", QStringLiteral("front"), QString());
    QCOMPARE(log.texts("ERROR"), QStringList());
    OpenDataEngine engine(bytes, QStringLiteral("T"), QStringLiteral("null"), &front);
    QCOMPARE(log.lines().last(), "ERROR " + message.first());
    QVERIFY(engine.setupGstPipeline());
    engine.feedDataCallback(4);
    QCOMPARE(log.texts("ERROR"), message);
}

// ---- Pipeline ----------------------------------------------------------------------------------

void TestDataEngine::sourceKnowsTheSizeAndNoCaps_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("empty") << 0;
    QTest::newRow("10 bytes") << 10;
    QTest::newRow("larger than the default queue") << 300000;
}

void TestDataEngine::sourceKnowsTheSizeAndNoCaps()
{
    QFETCH(int, size);
    DataFixture fixture(QByteArray(size, 'x'));
    QVERIFY(fixture.build());
    auto* source = GST_APP_SRC(fixture.engine->appsrc);
    QCOMPARE(gst_app_src_get_stream_type(source), GST_APP_STREAM_TYPE_RANDOM_ACCESS);
    QCOMPARE(gst_app_src_get_size(source), gint64(size));
    QCOMPARE(gst_app_src_get_max_bytes(source), guint64(size));
    QVERIFY(!gst_app_src_get_caps(source));
    GstFormat format = GST_FORMAT_UNDEFINED;
    g_object_get(source, "format", &format, nullptr);
    QCOMPARE(format, GST_FORMAT_BYTES);
}

void TestDataEngine::newPipelineGoesOnAtTheSameOffset()
{
    DataFixture fixture(tenBytes);
    QVERIFY(fixture.build());
    fixture.need(4);
    fixture.engine->releaseGstPipeline();
    QVERIFY(fixture.build());
    QCOMPARE(fixture.engine->offset, quint64(4));
    const Pushed pushed;
    fixture.need(4);
    QCOMPARE(pushed.all(), QByteArray("4567"));
}

void TestDataEngine::decoderThatCannotBeLinkedEndsTheBuilding()
{
    DataFixture fixture(tenBytes);
    const ReplacedFactory replaced("decodebin", "pipeline");
    QVERIFY(!fixture.engine->startPlayback());
    QCOMPARE(fixture.log.texts("ERROR"),
             (QStringList{"Failed to link appsrc and decodebin", setupFailure}));
    // All elements are in the pipeline, which releases them later; the chain is left unlinked.
    QCOMPARE(GST_BIN_NUMCHILDREN(fixture.engine->pipeline), 6);
    QVERIFY(!isLinked(fixture.engine->queue, "src"));
    QVERIFY(!isLinked(fixture.engine->sink, "sink"));
}

// ---- Memory ------------------------------------------------------------------------------------

void TestDataEngine::chunkIsAReadOnlyViewOfTheArray()
{
    DataFixture fixture(makeTenBytes());
    QVERIFY(fixture.build());
    const Pushed pushed;
    fixture.need(4);
    fixture.need(3);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(gst_buffer_n_memory(pushed[i]), 1U);
        const GstMemory* memory = pushed.memory(i);
        QVERIFY(GST_MEMORY_IS_READONLY(memory));
        QCOMPARE(memory->maxsize, gsize(10));
        QCOMPARE(memory->offset, gsize(4 * i));
        QCOMPARE(memory->size, gsize(4 - i));
        GstMapInfo map;
        QVERIFY(!gst_memory_map(pushed.memory(i), &map, GST_MAP_WRITE));
    }
}

void TestDataEngine::arrayIsCopiedOnceIfItIsShared_data()
{
    QTest::addColumn<QString>("owner");
    for (const char* owner : {"engine", "caller", "borrowed", "literal"}) {
        QTest::newRow(owner) << owner;
    }
}

void TestDataEngine::arrayIsCopiedOnceIfItIsShared()
{
    QFETCH(QString, owner);
    std::vector<char> lent(tenBytes.begin(), tenBytes.end());
    QByteArray bytes = owner == "borrowed"  ? QByteArray::fromRawData(lent.data(), int(lent.size()))
                       : owner == "literal" ? QByteArrayLiteral("0123456789")
                                            : makeTenBytes();
    const void* array = placeOf(bytes);
    DataFixture fixture(bytes);
    if (owner == "engine") {
        bytes = QByteArray();
    }
    QVERIFY(fixture.build());
    QCOMPARE(placeOf(fixture.engine->data), array);
    const Pushed pushed;
    fixture.need(2);
    lent = std::vector<char>(); // from now on the copy is used
    fixture.need(8);
    fixture.seek(0);
    fixture.need(10);
    fixture.engine->releaseGstPipeline();
    QVERIFY(fixture.build());
    fixture.seek(1);
    fixture.need(3);
    QCOMPARE(pushed.array(0) == array, owner == "engine");
    for (int i = 1; i < 4; ++i) {
        QCOMPARE(pushed.array(i), pushed.array(0));
    }
    QCOMPARE(placeOf(fixture.engine->data), pushed.array(0));
    QCOMPARE(pushed.all(), tenBytes + tenBytes + tenBytes.mid(1, 3));
}

void TestDataEngine::callerMayChangeItsArrayAfterTheFirstChunk()
{
    QByteArray bytes = makeTenBytes();
    DataFixture fixture(bytes);
    QVERIFY(fixture.build());
    const Pushed pushed;
    fixture.need(2);
    bytes.fill('x');
    fixture.need(8);
    QCOMPARE(pushed.all(), tenBytes);
    bytes = QByteArray();
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::chunksOutliveTheEndAndTheEngine()
{
    const Pushed pushed;
    {
        DataFixture fixture(makeTenBytes());
        QVERIFY(fixture.build());
        fixture.need(6);
        fixture.need(4);
        QVERIFY(!fixture.engine->data.isDetached()); // the chunks hold it too
        fixture.need(4);
        QVERIFY(fixture.engine->data.isEmpty());
        QCOMPARE(pushed.all(), tenBytes);
    }
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::arrayIsFreeWhenTheLastChunkIsGone()
{
    DataFixture fixture(makeTenBytes());
    QVERIFY(fixture.build());
    {
        const Pushed pushed;
        fixture.need(6);
        fixture.need(4);
        fixture.engine->releaseGstPipeline(); // the source queued the chunks too
        QVERIFY(!fixture.engine->data.isDetached());
    }
    QVERIFY(fixture.engine->data.isDetached());
}

// ---- Destruction ------------------------------------------------------------------------------

void TestDataEngine::destructorLogsWhatTheBaseLogs()
{
    DataFixture fixture(tenBytes);
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.build());
    fixture.engine.reset();
    QCOMPARE(
        fixture.log.lines(),
        QStringList{enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T")} +
            releasing() +
            QStringList{leaveLine("TRACE", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T")});
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestDataEngine)
#include "tst_dataengine.moc"
