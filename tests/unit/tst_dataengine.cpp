#include "unit/DecoderPads.h"
#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <gst/app/gstappsrc.h>

#include <QtTest/QtTest>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

/// A front object and an open engine for it. The front object's own engine stays unused.
struct Scene
{
    explicit Scene(const QByteArray& bytes, const QString& device = QStringLiteral("null"))
        : front("unused", QStringLiteral("front"), QString()),
          engine(new OpenDataEngine(bytes, QStringLiteral("T"), device, &front))
    {
        log.clear();
    }

    /// Builds the pipeline, which stays in NULL: an appsrc that was never started takes all.
    bool build()
    {
        const bool built = engine->setupGstPipeline();
        log.clear();
        return built;
    }

    /// Asks as the appsrc does.
    void need(guint length) const { g_signal_emit_by_name(engine->appsrc, "need-data", length); }

    gboolean seek(guint64 position) const
    {
        gboolean accepted = FALSE;
        g_signal_emit_by_name(engine->appsrc, "seek-data", position, &accepted);
        return accepted;
    }

    LogCapture log;
    DataSimplePlayer front;
    std::unique_ptr<OpenDataEngine> engine;
};

/// Keeps every buffer that any appsrc is given while this lives, like an element that is slow.
class Pushed
{
public:
    Pushed()
        : signal(g_signal_lookup("push-buffer", GST_TYPE_APP_SRC)),
          hook(g_signal_add_emission_hook(signal, 0, keep, this, nullptr))
    {
    }

    ~Pushed()
    {
        g_signal_remove_emission_hook(signal, hook);
        for (GstBuffer* buffer : buffers) {
            gst_buffer_unref(buffer);
        }
    }

    Pushed(const Pushed&) = delete;
    Pushed& operator=(const Pushed&) = delete;

    int count() const { return int(buffers.size()); }
    GstBuffer* operator[](int i) const { return buffers[std::size_t(i)]; }
    GstMemory* memory(int i) const { return gst_buffer_peek_memory((*this)[i], 0); }

    /// The bytes of a buffer, where they are.
    QByteArray view(int i) const
    {
        GstMapInfo map;
        gst_memory_map(memory(i), &map, GST_MAP_READ);
        const auto bytes =
            QByteArray::fromRawData(reinterpret_cast<const char*>(map.data), int(map.size));
        gst_memory_unmap(memory(i), &map);
        return bytes;
    }

    /// Where the array begins that a buffer is a view of.
    const void* array(int i) const { return view(i).constData() - memory(i)->offset; }

    QByteArray all() const
    {
        QByteArray bytes;
        for (int i = 0; i < count(); ++i) {
            bytes.append(view(i));
        }
        return bytes;
    }

private:
    static gboolean keep(GSignalInvocationHint*, guint, const GValue* values, gpointer self)
    {
        static_cast<Pushed*>(self)->buffers.push_back(
            gst_buffer_ref(static_cast<GstBuffer*>(g_value_get_boxed(&values[1]))));
        return TRUE;
    }

    const guint signal;
    const gulong hook;
    std::vector<GstBuffer*> buffers;
};

/// What the engine makes, in order.
const QByteArrayList factories{"appsrc",       "decodebin",     "queue",
                               "audioconvert", "audioresample", "alsasink"};

const QByteArray tenBytes("0123456789");

/// Where the bytes of an array are. No char pointer: of those, QCOMPARE compares the text.
const void* placeOf(const QByteArray& bytes)
{
    return bytes.constData();
}

/// Ten bytes that nobody else holds.
QByteArray makeTenBytes()
{
    return QByteArray(tenBytes.constData(), tenBytes.size());
}

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

bool isLinked(GstElement* element, const char* padName)
{
    GstPad* pad = gst_element_get_static_pad(element, padName);
    const bool linked = gst_pad_is_linked(pad);
    gst_object_unref(pad);
    return linked;
}

} // namespace

/// Construction, pipeline, feeding, memory and decoded pads of the engine that plays memory.
class TestDataEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void constructionSharesTheArrayAndLogsNothingMore();
    void emptyArrayIsLoggedOnceAtConstruction_data();
    void emptyArrayIsLoggedOnceAtConstruction();
    void frontObjectForwardsToItsEngine();

    void pipelineHasItsElements();
    void sourceKnowsTheSizeAndNoCaps_data();
    void sourceKnowsTheSizeAndNoCaps();
    void pipelineCanBeBuiltAgainAfterARelease();
    void newPipelineGoesOnAtTheSameOffset();
    void nullPipelineIsRefused();
    void missingElementEndsTheBuilding_data();
    void missingElementEndsTheBuilding();
    void decoderThatCannotBeLinkedEndsTheBuilding();
    void chainThatCannotBeLinkedEndsTheBuilding();

    void arrayIsFedInChunksAndThenEnds();
    void requestForNothingPushesAnEmptyChunk();
    void chunkThatEndsWithTheArrayIsNotCropped();
    void requestForAllThereIsGetsAll();
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

    void chunkIsAReadOnlyViewOfTheArray();
    void arrayThatOnlyTheEngineHoldsIsNeverCopied();
    void arrayThatTheCallerKeepsIsCopiedOnce();
    void copyServesAllLaterChunks();
    void callerMayChangeItsArrayAfterTheFirstChunk();
    void borrowedBytesAreCopiedAtTheFirstChunk();
    void literalIsCopiedAtTheFirstChunk();
    void chunksOutliveTheEndAndTheEngine();
    void arrayIsFreeWhenTheLastChunkIsGone();

    void audioPadIsLinkedToTheQueue_data();
    void audioPadIsLinkedToTheQueue();
    void audioMayStandAnywhereInTheName();
    void otherPadIsSkipped_data();
    void otherPadIsSkipped();
    void linkedPadIsLeftAlone();
    void secondAudioPadIsRefusedInSilence();

    void loopIsRefusedAndTheEndReported();
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

void TestDataEngine::frontObjectForwardsToItsEngine()
{
    const MissingFactory missing("appsrc");
    LogCapture log;
    DataSimplePlayer player(tenBytes, QStringLiteral("T"), QString());
    const Outcomes outcomes(&player);
    log.clear();
    QVERIFY(!player.startPlayback());
    QCOMPARE(log.texts("ERROR"), (QStringList{"could not create appsrc element",
                                              "Failed to setup gst pipeline of simple player"}));
    QVERIFY(!player.pausePlayback());
    QCOMPARE(log.texts("ERROR").last(), QStringLiteral("Pipeline not initialized - not pausing"));
    QVERIFY(!player.stopPlayback());
    QCOMPARE(log.texts("ERROR").last(), QStringLiteral("Pipeline not initialized - not stopping"));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"error T: Not initialized"});
}

// ---- Pipeline ----------------------------------------------------------------------------------

void TestDataEngine::pipelineHasItsElements()
{
    Scene scene(tenBytes, QStringLiteral("the device"));
    QVERIFY(scene.engine->setupGstPipeline());
    QCOMPARE(scene.log.lines().mid(1, 2),
             (QStringList{enterLine("TRACE", "DataSimplePlayerImpl::initPipeline", "token: T"),
                          leaveLine("TRACE", "DataSimplePlayerImpl::initPipeline", "token: T")}));

    // A bin lists its elements with the latest first.
    QStringList names;
    for (GList* i = GST_BIN_CHILDREN(scene.engine->pipeline); i; i = i->next) {
        names.prepend(QString::fromUtf8(GST_OBJECT_NAME(i->data)));
    }
    QCOMPARE(names, (QStringList{"AppSrc", "DecodeBin", "Queue", "AudioConvert", "AudioResample",
                                 "AudioSink"}));
    QCOMPARE(GST_OBJECT_NAME(scene.engine->appsrc), "AppSrc");
    QCOMPARE(GST_OBJECT_NAME(scene.engine->decodebin), "DecodeBin");
    QCOMPARE(GST_OBJECT_NAME(scene.engine->queue), "Queue");
    QCOMPARE(GST_OBJECT_NAME(scene.engine->sink), "AudioSink");
    gchar* device = nullptr;
    g_object_get(scene.engine->sink, "device", &device, nullptr);
    QCOMPARE(QByteArray(device), QByteArray("the device"));
    g_free(device);
    // Until the decoder announces a pad, nothing leads from it to the sink.
    QVERIFY(isLinked(scene.engine->appsrc, "src"));
    QVERIFY(isLinked(scene.engine->sink, "sink"));
    QVERIFY(!isLinked(scene.engine->queue, "sink"));
}

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
    Scene scene(QByteArray(size, 'x'));
    QVERIFY(scene.build());
    auto* source = GST_APP_SRC(scene.engine->appsrc);
    QCOMPARE(gst_app_src_get_stream_type(source), GST_APP_STREAM_TYPE_RANDOM_ACCESS);
    QCOMPARE(gst_app_src_get_size(source), gint64(size));
    QCOMPARE(gst_app_src_get_max_bytes(source), guint64(size));
    QVERIFY(!gst_app_src_get_caps(source));
    GstFormat format = GST_FORMAT_UNDEFINED;
    g_object_get(source, "format", &format, nullptr);
    QCOMPARE(format, GST_FORMAT_BYTES);
}

void TestDataEngine::pipelineCanBeBuiltAgainAfterARelease()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    scene.engine->releaseGstPipeline();
    QVERIFY(scene.build());
    QCOMPARE(GST_OBJECT_PARENT(scene.engine->appsrc), GST_OBJECT(scene.engine->pipeline));
    const Pushed pushed;
    scene.need(10);
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::newPipelineGoesOnAtTheSameOffset()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    scene.need(4);
    scene.engine->releaseGstPipeline();
    QVERIFY(scene.build());
    QCOMPARE(scene.engine->offset, quint64(4));
    const Pushed pushed;
    scene.need(4);
    QCOMPARE(pushed.all(), QByteArray("4567"));
}

void TestDataEngine::nullPipelineIsRefused()
{
    Scene scene(tenBytes);
    QVERIFY(!scene.engine->initPipeline(nullptr));
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("TRACE", "DataSimplePlayerImpl::initPipeline", "token: T"),
                          "ERROR No pipeline to initialize player to"}));
    QVERIFY(!scene.engine->appsrc);
}

void TestDataEngine::missingElementEndsTheBuilding_data()
{
    QTest::addColumn<QByteArray>("factory");
    for (const QByteArray& factory : factories) {
        QTest::newRow(factory.constData()) << factory;
    }
}

void TestDataEngine::missingElementEndsTheBuilding()
{
    QFETCH(QByteArray, factory);
    const auto position = factories.indexOf(factory);
    const MissingFactory missing(factory.constData());
    {
        Scene scene(tenBytes);
        QVERIFY(!scene.engine->startPlayback());
        QCOMPARE(scene.log.texts("ERROR"),
                 (QStringList{"could not create " + factory + " element",
                              "Failed to setup gst pipeline of simple player"}));
        QVERIFY(!scene.log.lines().contains(
            leaveLine("TRACE", "DataSimplePlayerImpl::initPipeline", "token: T")));
        QVERIFY(!scene.engine->initialized);
        QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 0);
        QCOMPARE(scene.engine->appsrc != nullptr, position > 0);
        QCOMPARE(scene.engine->decodebin != nullptr, position > 1);
        QCOMPARE(scene.engine->queue != nullptr, position > 2);
        QVERIFY(!scene.engine->sink);
    }
    // What was made before stays, on purpose, and belongs to nobody.
    const QStringList made{"GstAppSrc", "GstDecodeBin", "GstQueue", "GstAudioConvert",
                           "GstAudioResample"};
    QStringList abandoned = made.mid(0, int(position));
    abandoned.sort();
    QCOMPARE(freeAbandonedGstElements(), abandoned);
}

void TestDataEngine::decoderThatCannotBeLinkedEndsTheBuilding()
{
    Scene scene(tenBytes);
    const ReplacedFactory replaced("decodebin", "pipeline");
    QVERIFY(!scene.engine->startPlayback());
    QCOMPARE(scene.log.texts("ERROR"),
             (QStringList{"Failed to link appsrc and decodebin",
                          "Failed to setup gst pipeline of simple player"}));
    // All elements are in the pipeline, which releases them later; the chain is left unlinked.
    QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 6);
    QVERIFY(!isLinked(scene.engine->queue, "src"));
    QVERIFY(!isLinked(scene.engine->sink, "sink"));
}

void TestDataEngine::chainThatCannotBeLinkedEndsTheBuilding()
{
    Scene scene(tenBytes);
    const ReplacedFactory replaced("audioconvert", "pipeline");
    QVERIFY(!scene.engine->startPlayback());
    QCOMPARE(scene.log.texts("ERROR"),
             (QStringList{"Failed to link rest of the elements",
                          "Failed to setup gst pipeline of simple player"}));
    QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 6);
    QVERIFY(isLinked(scene.engine->appsrc, "src"));
}

// ---- Feeding -----------------------------------------------------------------------------------

void TestDataEngine::arrayIsFedInChunksAndThenEnds()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Outcomes outcomes(&scene.front);
    const Pushed pushed;
    for (int i = 0; i < 3; ++i) {
        scene.need(4);
    }
    QCOMPARE(scene.log.lines(),
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
    QCOMPARE(scene.engine->offset, quint64(10));
    QCOMPARE(scene.engine->data.size(), 10);

    scene.log.clear();
    scene.need(4);
    QCOMPARE(scene.log.lines(), (QStringList{needLine(4, 10), "DEBUG EOS sent with ret0"}));
    QVERIFY(scene.engine->data.isEmpty());
    QCOMPARE(scene.engine->offset, quint64(10));
    QCOMPARE(pushed.count(), 3);
    QCOMPARE(outcomes.all, QStringList());
    // A source that was told of the end takes no more.
    QCOMPARE(gst_app_src_push_buffer(GST_APP_SRC(scene.engine->appsrc), gst_buffer_new()),
             GST_FLOW_EOS);
}

void TestDataEngine::requestForNothingPushesAnEmptyChunk()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(0);
    QCOMPARE(scene.log.lines(), (QStringList{needLine(0, 10), pushedLine(0, 0)}));
    QCOMPARE(pushed.count(), 1);
    QCOMPARE(pushed.view(0), QByteArray());
    QCOMPARE(scene.engine->offset, quint64(0));
}

void TestDataEngine::chunkThatEndsWithTheArrayIsNotCropped()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    scene.need(6);
    scene.need(4);
    QCOMPARE(scene.log.lines(),
             (QStringList{needLine(6, 10), pushedLine(6, 0), needLine(4, 10), pushedLine(4, 6)}));
}

void TestDataEngine::requestForAllThereIsGetsAll()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.seek(3);
    scene.log.clear();
    scene.need(G_MAXUINT);
    QCOMPARE(scene.log.lines(),
             (QStringList{needLine(G_MAXUINT, 10), "DEBUG Cropping to size 7", pushedLine(7, 3)}));
    QCOMPARE(pushed.all(), QByteArray("3456789"));
}

void TestDataEngine::emptyArrayEndsAtTheFirstRequest()
{
    Scene scene{QByteArray()};
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(4);
    QCOMPARE(scene.log.lines(), (QStringList{needLine(4, 0), "DEBUG EOS sent with ret0"}));
    QCOMPARE(pushed.count(), 0);
}

void TestDataEngine::seekMovesTheOffset_data()
{
    QTest::addColumn<quint64>("position");
    QTest::addColumn<QByteArray>("chunk");
    QTest::newRow("to the beginning") << quint64(0) << QByteArray("012");
    QTest::newRow("backwards") << quint64(2) << QByteArray("234");
    QTest::newRow("forwards") << quint64(6) << QByteArray("678");
    QTest::newRow("to the last byte") << quint64(9) << QByteArray("9");
}

void TestDataEngine::seekMovesTheOffset()
{
    QFETCH(quint64, position);
    QFETCH(QByteArray, chunk);
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    scene.need(4);
    const Pushed pushed;
    scene.log.clear();
    QCOMPARE(scene.seek(position), TRUE);
    QCOMPARE(scene.log.lines(),
             QStringList{enterLine("TRACE", "DataSimplePlayerImpl::seekDataCallback",
                                   qPrintable(QStringLiteral("pos: %1").arg(position)))});
    QCOMPARE(scene.engine->offset, position);
    scene.need(3);
    QCOMPARE(pushed.all(), chunk);
    QCOMPARE(GST_BUFFER_OFFSET(pushed[0]), position);
    QCOMPARE(scene.engine->offset, position + quint64(chunk.size()));
}

void TestDataEngine::seekAtOrPastTheEndEndsTheStream_data()
{
    QTest::addColumn<quint64>("position");
    QTest::newRow("at the end") << quint64(10);
    QTest::newRow("past the end") << quint64(11);
    QTest::newRow("farther than 32 bits") << (quint64(1) << 32);
    QTest::newRow("as far as can be") << ~quint64(0);
}

void TestDataEngine::seekAtOrPastTheEndEndsTheStream()
{
    QFETCH(quint64, position);
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Pushed pushed;
    QCOMPARE(scene.seek(position), TRUE);
    scene.log.clear();
    scene.need(4);
    QCOMPARE(scene.log.lines(), (QStringList{needLine(4, 10), "DEBUG EOS sent with ret0"}));
    QCOMPARE(scene.engine->offset, position);
    QVERIFY(scene.engine->data.isEmpty());
    QCOMPARE(pushed.count(), 0);
}

void TestDataEngine::endedItemStaysEndedAfterASeek()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    scene.seek(10);
    scene.need(4);
    const Pushed pushed;
    for (quint64 position : {0U, 5U}) {
        QCOMPARE(scene.seek(position), TRUE);
        scene.log.clear();
        scene.need(4);
        QCOMPARE(scene.log.lines(), (QStringList{needLine(4, 0), "DEBUG EOS sent with ret0"}));
        QCOMPARE(scene.engine->offset, position);
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

void TestDataEngine::refusedPushIsReportedEveryTime_data()
{
    QTest::addColumn<bool>("flushing");
    QTest::addColumn<int>("ret");
    QTest::newRow("flushing") << true << -2;
    QTest::newRow("end of stream") << false << -3;
}

void TestDataEngine::refusedPushIsReportedEveryTime()
{
    QFETCH(bool, flushing);
    QFETCH(int, ret);
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Outcomes outcomes(&scene.front);
    (flushing ? shutDown : endStreamOf)(scene.engine->appsrc);
    scene.seek(2);

    QStringList reported;
    for (int i = 0; i < 2; ++i) {
        scene.log.clear();
        scene.need(4);
        QCOMPARE(scene.log.lines(),
                 (QStringList{needLine(4, 10), pushedLine(4, 2, ret),
                              QStringLiteral("ERROR Unable to push buffer, ret: %1").arg(ret)}));
        reported += QStringLiteral("error T: Failed to push buffer");
        QCOMPARE(outcomes.all, reported); // at once, not from the event loop
        QCOMPARE(scene.engine->offset, quint64(2));
        QCOMPARE(scene.engine->data.size(), 10);
    }
    QVERIFY(!scene.engine->endReported);
}

void TestDataEngine::refusedPushIsReportedBesideTheOneOutcome()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.engine->stopPlayback());
    QCoreApplication::processEvents();
    QVERIFY(scene.engine->endReported);
    endStreamOf(scene.engine->appsrc);
    scene.need(4);
    QCOMPARE(outcomes.all, (QStringList{"stopped T", "error T: Failed to push buffer"}));
}

void TestDataEngine::refusedPushIsReportedFromTheThreadOfTheRequest()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Outcomes outcomes(&scene.front);
    std::thread::id reporter;
    QObject::connect(&scene.front, &SimplePlayer::playbackErrorReported,
                     [&reporter] { reporter = std::this_thread::get_id(); });
    endStreamOf(scene.engine->appsrc);

    std::thread streaming([&scene] { scene.need(4); });
    const std::thread::id streamingId = streaming.get_id();
    streaming.join();
    QVERIFY(reporter == streamingId);
    // A receiver that lives here is told here.
    QCOMPARE(outcomes.all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"error T: Failed to push buffer"});
}

// An element that does something whenever its state is set: stands where a streaming thread would
// be still at work.
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

void TestDataEngine::pushRefusedDuringDestructionIsNotReported()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    const Outcomes outcomes(&scene.front);
    OpenDataEngine* const engine = scene.engine.get();
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
    scene.log.clear();

    scene.engine.reset();
    QCOMPARE(requests, 1);
    // The request came before the base began to release the pipeline.
    QCOMPARE(scene.log.lines().mid(0, 3), (QStringList{needLine(4, 10), pushedLine(4, 0, -3),
                                                       "ERROR Unable to push buffer, ret: -3"}));
    QCOMPARE(outcomes.all, QStringList());
}

// ---- Memory ------------------------------------------------------------------------------------

void TestDataEngine::chunkIsAReadOnlyViewOfTheArray()
{
    Scene scene(makeTenBytes());
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(4);
    scene.need(3);
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

void TestDataEngine::arrayThatOnlyTheEngineHoldsIsNeverCopied()
{
    QByteArray bytes = makeTenBytes();
    const void* array = placeOf(bytes);
    Scene scene(bytes);
    bytes = QByteArray();
    QVERIFY(scene.build());
    const Pushed pushed;
    for (int i = 0; i < 5; ++i) {
        scene.need(2);
        QCOMPARE(pushed.array(i), array);
    }
    QCOMPARE(placeOf(scene.engine->data), array);
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::arrayThatTheCallerKeepsIsCopiedOnce()
{
    const QByteArray bytes = makeTenBytes();
    Scene scene(bytes);
    QVERIFY(scene.build());
    QCOMPARE(placeOf(scene.engine->data), placeOf(bytes));
    const Pushed pushed;
    scene.need(2);
    const void* copy = pushed.array(0);
    QVERIFY(copy != placeOf(bytes));
    for (int i = 1; i < 5; ++i) {
        scene.need(2);
        QCOMPARE(pushed.array(i), copy);
    }
    QCOMPARE(placeOf(scene.engine->data), copy);
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::copyServesAllLaterChunks()
{
    const QByteArray bytes = makeTenBytes();
    Scene scene(bytes);
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(2);
    scene.seek(0);
    scene.need(10);
    scene.engine->releaseGstPipeline();
    QVERIFY(scene.build());
    scene.seek(1);
    scene.need(3);
    for (int i = 1; i < 3; ++i) {
        QCOMPARE(pushed.array(i), pushed.array(0));
    }
}

void TestDataEngine::callerMayChangeItsArrayAfterTheFirstChunk()
{
    QByteArray bytes = makeTenBytes();
    Scene scene(bytes);
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(2);
    bytes.fill('x');
    scene.need(8);
    QCOMPARE(pushed.all(), tenBytes);
    bytes = QByteArray();
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::borrowedBytesAreCopiedAtTheFirstChunk()
{
    std::vector<char> lent(tenBytes.begin(), tenBytes.end());
    Scene scene(QByteArray::fromRawData(lent.data(), int(lent.size())));
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(2);
    QVERIFY(pushed.array(0) != lent.data());
    lent = std::vector<char>();
    scene.need(8);
    QCOMPARE(pushed.array(1), pushed.array(0));
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::literalIsCopiedAtTheFirstChunk()
{
    const QByteArray literal = QByteArrayLiteral("0123456789");
    Scene scene(literal);
    QVERIFY(scene.build());
    const Pushed pushed;
    scene.need(4);
    scene.need(6);
    QVERIFY(pushed.array(0) != placeOf(literal));
    QCOMPARE(pushed.array(1), pushed.array(0));
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::chunksOutliveTheEndAndTheEngine()
{
    const Pushed pushed;
    {
        Scene scene(makeTenBytes());
        QVERIFY(scene.build());
        scene.need(6);
        scene.need(4);
        QVERIFY(!scene.engine->data.isDetached()); // the chunks hold it too
        scene.need(4);
        QVERIFY(scene.engine->data.isEmpty());
        QCOMPARE(pushed.all(), tenBytes);
    }
    QCOMPARE(pushed.all(), tenBytes);
}

void TestDataEngine::arrayIsFreeWhenTheLastChunkIsGone()
{
    Scene scene(makeTenBytes());
    QVERIFY(scene.build());
    {
        const Pushed pushed;
        scene.need(6);
        scene.need(4);
        scene.engine->releaseGstPipeline(); // the source queued the chunks too
        QVERIFY(!scene.engine->data.isDetached());
    }
    QVERIFY(scene.engine->data.isDetached());
}

// ---- Decoded pads ------------------------------------------------------------------------------

static const QString enterPad =
    enterLine("DEBUG", "DataSimplePlayerImpl::newPadCallback", "token: T");
static const QString leavePad =
    leaveLine("DEBUG", "DataSimplePlayerImpl::newPadCallback", "token: T");

void TestDataEngine::audioPadIsLinkedToTheQueue_data()
{
    QTest::addColumn<QByteArray>("caps");
    QTest::newRow("raw audio") << QByteArray("audio/x-raw");
    QTest::newRow("audio first of several") << QByteArray("audio/x-raw; video/x-raw");
}

void TestDataEngine::audioPadIsLinkedToTheQueue()
{
    QFETCH(QByteArray, caps);
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    GstPad* pad = announcePad(scene.engine->decodebin, "first", caps.constData());
    GstPad* peer = gst_pad_get_peer(pad);
    QVERIFY(peer);
    QCOMPARE(GST_PAD_PARENT(peer), scene.engine->queue);
    gst_object_unref(peer);
    QCOMPARE(scene.log.lines(), (QStringList{enterPad, leavePad}));
}

void TestDataEngine::audioMayStandAnywhereInTheName()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    // It is offered to the queue, although the converter behind that does not take it.
    QVERIFY(!gst_pad_is_linked(
        announcePad(scene.engine->decodebin, "first", "application/x-audio-test")));
    QCOMPARE(scene.log.lines(), (QStringList{enterPad, leavePad}));
}

void TestDataEngine::otherPadIsSkipped_data()
{
    QTest::addColumn<QByteArray>("caps");
    QTest::newRow("raw video") << QByteArray("video/x-raw");
    QTest::newRow("audio only second") << QByteArray("video/x-raw; audio/x-raw");
    QTest::newRow("anything") << QByteArray("ANY");
    QTest::newRow("nothing") << QByteArray("EMPTY");
}

void TestDataEngine::otherPadIsSkipped()
{
    QFETCH(QByteArray, caps);
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    QVERIFY(!gst_pad_is_linked(announcePad(scene.engine->decodebin, "first", caps.constData())));
    QVERIFY(!isLinked(scene.engine->queue, "sink"));
    QCOMPARE(scene.log.lines(),
             (QStringList{enterPad, "WARN Skipping non-audio pad from uridecodebin"}));
}

void TestDataEngine::linkedPadIsLeftAlone()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    GstPad* pad = announcePad(scene.engine->decodebin, "first", "audio/x-raw");
    scene.log.clear();
    scene.engine->newPadCallback(pad);
    QCOMPARE(scene.log.lines(),
             (QStringList{enterPad, "WARN Cannot link already linked pad - skipping"}));
}

void TestDataEngine::secondAudioPadIsRefusedInSilence()
{
    Scene scene(tenBytes);
    QVERIFY(scene.build());
    GstPad* first = announcePad(scene.engine->decodebin, "first", "audio/x-raw");
    scene.log.clear();
    QVERIFY(!gst_pad_is_linked(announcePad(scene.engine->decodebin, "second", "audio/x-raw")));
    QVERIFY(gst_pad_is_linked(first));
    QCOMPARE(scene.log.lines(), (QStringList{enterPad, leavePad}));
}

// ---- Loop and end ------------------------------------------------------------------------------

void TestDataEngine::loopIsRefusedAndTheEndReported()
{
    Scene scene(tenBytes);
    const Outcomes outcomes(&scene.front);
    scene.front.loop = true;
    QVERIFY(scene.build());
    GstBus* bus = gst_element_get_bus(scene.engine->pipeline);
    gst_bus_post(bus, gst_message_new_eos(nullptr));
    gst_object_unref(bus);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"ended T"}, patience);
    QCOMPARE(scene.log.lines().mid(0, 3),
             (QStringList{"TRACE EOS received at gst busT",
                          "ERROR Restart(loop) playback not implemented",
                          "TRACE reporting playback end due to EOS"}));
}

void TestDataEngine::destructorLogsWhatTheBaseLogs()
{
    Scene scene(tenBytes);
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.build());
    scene.engine.reset();
    QCOMPARE(
        scene.log.lines(),
        (QStringList{enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T"),
                     enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                     "TRACE Releasing active playback pipeline",
                     leaveLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                     leaveLine("TRACE", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T")}));
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestDataEngine)
#include "tst_dataengine.moc"
