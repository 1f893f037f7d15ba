#include "unit/DecoderPads.h"
#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/PipeWriter.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/Waiting.h"

#include <core/KovaNamedPipe.h>
#include <simplePlayer/StreamSimplePlayer.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QPointer>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

#include <gst/app/gstappsrc.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>

namespace {

/// The stream engine, whose slots a test may call.
class OpenEngine : public OpenStreamEngine
{
public:
    using OpenStreamEngine::OpenStreamEngine;

    void activate(int sock = 7)
    {
        QMetaObject::invokeMethod(this, "on_readPipeNotifier_activated", Qt::DirectConnection,
                                  Q_ARG(int, sock));
    }

    void receive(bool enable)
    {
        QMetaObject::invokeMethod(this, "on_receiveNewData", Qt::DirectConnection,
                                  Q_ARG(bool, enable));
    }

    /// What the reader is doing: "held", "reading", or "ended" without a pipe.
    QString reader() const
    {
        return !pipe                               ? QStringLiteral("ended")
               : pipe->readNotifier()->isEnabled() ? QStringLiteral("reading")
                                                   : QStringLiteral("held");
    }
};

/// A front object and an open engine for it. The front object's own engine has no pipe.
struct Scene
{
    explicit Scene(const QString& caps = QString(), const QString& fifo = freshFifo())
        : path(fifo), front(QString(), QString(), QStringLiteral("front"), QString()),
          engine(new OpenEngine(path, caps, QStringLiteral("T"), QStringLiteral("null"), &front))
    {
        log.clear();
    }

    ~Scene()
    {
        engine.reset();
        if (writer >= 0) {
            ::close(writer);
        }
    }

    static QString freshFifo()
    {
        static int count = 0;
        return TestProcess::path(QStringLiteral("fifo%1").arg(++count));
    }

    /// Opens a writing end in this process: what it writes is there at once.
    void write(const QByteArray& bytes)
    {
        if (writer < 0) {
            writer = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        }
        const auto size = static_cast<std::size_t>(bytes.size());
        QCOMPARE(::write(writer, bytes.constData(), size), ssize_t(bytes.size()));
    }

    void closeWriter()
    {
        ::close(writer);
        writer = -1;
    }

    /// What the engine's reader is doing; an engine that is destroyed has ended.
    QString reader() const { return engine ? engine->reader() : QStringLiteral("ended"); }

    /// Whether a writer would find the FIFO open for reading.
    bool fifoHasReader() const
    {
        const int end = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK);
        if (end >= 0) {
            ::close(end);
        }
        return end >= 0;
    }

    /// The log without the lines of pipelineInitialized().
    QStringList lines() const
    {
        QStringList all = log.lines();
        all.removeAll(enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 0"));
        all.removeAll(enterLine("TRACE", "SimplePlayerImpl::pipelineInitialized", "init: 1"));
        return all;
    }

    LogCapture log;
    const QString path;
    StreamSimplePlayer front;
    std::unique_ptr<OpenEngine> engine;
    int writer = -1;
};

/// What the engine makes, in order, and the types of the elements.
const QByteArrayList factories{"appsrc",        "decodebin", "queue",   "audioconvert",
                               "audioresample", "identity",  "alsasink"};
const QStringList types{"GstAppSrc",        "GstDecodeBin", "GstQueue",   "GstAudioConvert",
                        "GstAudioResample", "GstIdentity",  "GstAlsaSink"};

QString enterTrace(const char* function, const QString& details = QStringLiteral("token: T"))
{
    return enterLine("TRACE", qPrintable(QStringLiteral("StreamSimplePlayerImpl::") + function),
                     qPrintable(details));
}

QString leaveTrace(const char* function, const QString& details = QStringLiteral("token: T"))
{
    return leaveLine("TRACE", qPrintable(QStringLiteral("StreamSimplePlayerImpl::") + function),
                     qPrintable(details));
}

QStringList closing()
{
    return {enterTrace("closeReadPipe"), leaveTrace("closeReadPipe")};
}

QStringList releasing()
{
    return {enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
            "TRACE Releasing active playback pipeline",
            leaveLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T")};
}

} // namespace

/// The pipeline of the stream engine and the reader of its named pipe.
class TestStreamEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void constructorOpensThePipe();
    void constructorLivesOnWithoutAPipe_data();
    void constructorLivesOnWithoutAPipe();
    void frontObjectForwardsToItsEngine();

    void pipelineHasItsElements();
    void sourceTakesItsCaps_data();
    void sourceTakesItsCaps();
    void sourceTakesItsCapsFirst();
    void nullPipelineIsRefused();
    void missingElementEndsTheBuilding_data();
    void missingElementEndsTheBuilding();
    void missingIdentityShowsWhenLinking();
    void sourceThatCannotBeLinkedEndsTheBuilding();
    void chainThatCannotBeLinkedEndsTheBuilding();

    void audioPadIsLinkedToTheQueue();
    void otherPadIsSkipped();
    void linkedPadIsLeftAlone();
    void secondAudioPadFindsTheQueueTaken();

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
    void writerIsHeldBeyondABusError_data();
    void writerIsHeldBeyondABusError();
    void startAfterABusErrorReadsOn_data();
    void startAfterABusErrorReadsOn();

    void closingTwiceClosesOnce();
    void stopClosesThePipeAfterTheBase();
    void stopWithoutPipelineClosesThePipeToo();
    void loopIsRefusedAndTheEndReported();
    void destructorReleasesThePipelineThenClosesThePipe();
};

void TestStreamEngine::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- Construction ------------------------------------------------------------------------------

void TestStreamEngine::constructorOpensThePipe()
{
    LogCapture log;
    StreamSimplePlayer front(QString(), QString(), QStringLiteral("front"), QString());
    log.clear();
    const QString path = Scene::freshFifo();
    const OpenEngine engine(path, QStringLiteral("the caps"), QStringLiteral("T"),
                            QStringLiteral("device"), &front);
    QCOMPARE(engine.streamPlayer, &front);
    QCOMPARE(engine.caps, QStringLiteral("the caps"));
    QCOMPARE(engine.pipeName, path);
    QCOMPARE(engine.reader(), QStringLiteral("reading"));
    QCOMPARE(engine.pipe->parent(), &engine);
    QCOMPARE(
        log.lines().mid(2),
        (QStringList{
            enterTrace("StreamSimplePlayerImpl", "constructor T"),
            enterTrace("initReadPipe", "Open named pipe for reading " + path + " token: T"),
            leaveTrace("initReadPipe"), leaveTrace("StreamSimplePlayerImpl", "constructor T")}));
}

void TestStreamEngine::constructorLivesOnWithoutAPipe_data()
{
    QTest::addColumn<QString>("path");
    const QString file = TestProcess::path(QStringLiteral("file"));
    QFile made(file);
    QVERIFY(made.open(QIODevice::WriteOnly));
    const QString fifo = TestProcess::path(QStringLiteral("target"));
    if (!QFile::exists(fifo)) {
        QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    }
    const QString link = TestProcess::path(QStringLiteral("link"));
    QFile::link(fifo, link);
    QTest::newRow("empty name") << QString();
    QTest::newRow("folder that is not there") << TestProcess::path("missing/fifo");
    QTest::newRow("regular file") << file;
    QTest::newRow("directory") << TestProcess::path();
    QTest::newRow("symbolic link to a FIFO") << link;
}

void TestStreamEngine::constructorLivesOnWithoutAPipe()
{
    QFETCH(QString, path);
    LogCapture log;
    LogCapture pipeLog("KovaNamedPipe");
    StreamSimplePlayer front(QString(), QString(), QStringLiteral("front"), QString());
    const Outcomes outcomes(&front);
    log.clear();
    pipeLog.clear();
    OpenEngine engine(path, QString(), QStringLiteral("T"), QStringLiteral("null"), &front);
    QCOMPARE(log.lines().mid(2),
             (QStringList{
                 enterTrace("StreamSimplePlayerImpl", "constructor T"),
                 enterTrace("initReadPipe", "Open named pipe for reading " + path + " token: T"),
                 "ERROR Failed to create and open named pipe, exitingT",
                 leaveTrace("StreamSimplePlayerImpl", "constructor T")}));
    // Making the pipe failed and was passed over; opening it failed, too.
    QCOMPARE(pipeLog.texts("ERROR").size(), 2);
    QVERIFY(pipeLog.texts("ERROR").last().endsWith(", id: 1 name: " + path));
    QCOMPARE(engine.reader(), QStringLiteral("ended"));
    QCOMPARE(engine.findChildren<KovaNamedPipe*>().size(), 1); // it is deleted later
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(engine.findChildren<KovaNamedPipe*>().size(), 0);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList());
    QVERIFY(engine.setupGstPipeline());
    QVERIFY(engine.stopPlayback());
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"stopped T"}, patience);
}

void TestStreamEngine::frontObjectForwardsToItsEngine()
{
    LogCapture log;
    StreamSimplePlayer player(QString(), QString(), QStringLiteral("T"), QString());
    const Outcomes outcomes(&player);
    {
        const MissingFactory missing("appsrc");
        QVERIFY(!player.startPlayback());
    }
    QCOMPARE(log.texts("ERROR").last(),
             QStringLiteral("Failed to setup gst pipeline of simple player"));
    QVERIFY(!player.pausePlayback());
    QCOMPARE(log.texts("ERROR").last(), QStringLiteral("Pipeline not initialized - not pausing"));
    log.clear();
    QVERIFY(!player.stopPlayback());
    QCOMPARE(log.texts("ERROR"), QStringList{"Pipeline not initialized - not stopping"});
    QCOMPARE(log.lines().mid(log.lines().size() - 3),
             closing() + QStringList{leaveTrace("stopPlayback")});
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Not initialized"}, patience);
}

// ---- Pipeline ----------------------------------------------------------------------------------

/// The names of an element and of all that are linked behind it.
static QStringList linkedBehind(GstElement* element)
{
    const QStringList names{QString::fromUtf8(GST_OBJECT_NAME(element))};
    GstPad* source = gst_element_get_static_pad(element, "src");
    GstPad* peer = source ? gst_pad_get_peer(source) : nullptr;
    QStringList behind;
    if (peer) {
        behind = linkedBehind(GST_PAD_PARENT(peer));
        gst_object_unref(peer);
    }
    gst_clear_object(&source);
    return names + behind;
}

void TestStreamEngine::pipelineHasItsElements()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    QCOMPARE(scene.log.lines().mid(1, 2),
             (QStringList{enterTrace("initPipeline"), leaveTrace("initPipeline")}));
    QStringList names; // a bin lists its elements with the latest first
    for (GList* i = GST_BIN_CHILDREN(scene.engine->pipeline); i; i = i->next) {
        names.prepend(QString::fromUtf8(GST_OBJECT_NAME(i->data)));
    }
    QCOMPARE(names, (QStringList{"AppSrc", "Identity", "DecodeBin", "Queue", "AudioConvert",
                                 "AudioResample", "AudioSink"}));

    gint streamType = -1;
    gint format = -1;
    guint64 maxBytes = 0;
    g_object_get(scene.engine->appsrc, "stream-type", &streamType, "format", &format, "max-bytes",
                 &maxBytes, nullptr);
    QCOMPARE(streamType, int(GST_APP_STREAM_TYPE_STREAM));
    QCOMPARE(format, int(GST_FORMAT_TIME));
    QCOMPARE(maxBytes, guint64(1000));
    gchar* device = nullptr;
    g_object_get(scene.engine->sink, "device", &device, nullptr);
    QCOMPARE(QByteArray(device), QByteArray("null"));
    g_free(device);
    GstElement* identity = gst_bin_get_by_name(GST_BIN(scene.engine->pipeline), "Identity");
    gboolean silent = TRUE;
    g_object_get(identity, "silent", &silent, nullptr);
    gst_object_unref(identity);
    QVERIFY(!silent);
    QCOMPARE(linkedBehind(scene.engine->appsrc), (QStringList{"AppSrc", "Identity", "DecodeBin"}));
    QCOMPARE(linkedBehind(scene.engine->queue),
             (QStringList{"Queue", "AudioConvert", "AudioResample", "AudioSink"}));
    GstPad* queueSink = gst_element_get_static_pad(scene.engine->queue, "sink");
    QVERIFY(!gst_pad_is_linked(queueSink));
    gst_object_unref(queueSink);
}

void TestStreamEngine::sourceTakesItsCaps_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<QByteArray>("caps");
    const QByteArray none("none");
    const QByteArray utf8("UTF-8");
    QTest::newRow("empty") << QString() << utf8 << none;
    QTest::newRow("no caps") << "no caps at all, =" << utf8 << none;
    QTest::newRow("blank") << " " << utf8 << QByteArray("EMPTY");
    QTest::newRow("unfinished") << "audio/x-raw,rate=(int" << utf8 << none;
    QTest::newRow("ANY") << "ANY" << utf8 << QByteArray("ANY");
    QTest::newRow("EMPTY") << "EMPTY" << utf8 << QByteArray("EMPTY");
    QTest::newRow("WAV") << "audio/x-wav" << utf8 << QByteArray("audio/x-wav");
    QTest::newRow("raw") << "audio/x-unaligned-raw,rate=16000" << utf8
                         << QByteArray("audio/x-unaligned-raw, rate=(int)16000");
    const QString umlaut = QStringLiteral("audio/x-wav,title=(string)\"\u00e4\"");
    QTest::newRow("umlaut where UTF-8 is spoken")
        << umlaut << utf8 << QByteArray("audio/x-wav, title=(string)\"\\303\\244\"");
    QTest::newRow("umlaut where it is not") << umlaut << QByteArray("ISO-8859-1") << none;
}

void TestStreamEngine::sourceTakesItsCaps()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, codec);
    QFETCH(QByteArray, caps);
    Scene scene(text);
    // The text is handed over in the encoding of the locale.
    QTextCodec* const previous = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
    QVERIFY(scene.engine->setupGstPipeline());
    QTextCodec::setCodecForLocale(previous);
    GstCaps* set = gst_app_src_get_caps(GST_APP_SRC(scene.engine->appsrc));
    gchar* described = set ? gst_caps_to_string(set) : g_strdup("none");
    const QByteArray inSource = described;
    g_free(described);
    gst_caps_replace(&set, nullptr);
    QCOMPARE(inSource, caps);
}

/// What was set on a noting source, and whether it had its caps by then.
static QStringList noted;

static void noteProperty(GObject* source, GParamSpec* property, gpointer /*data*/)
{
    GstCaps* set = gst_app_src_get_caps(GST_APP_SRC(source));
    const QString name = QString::fromUtf8(property->name);
    if (name == "format" || name == "max-bytes") {
        noted.append(name + (set ? " with caps" : " without caps"));
    }
    gst_caps_replace(&set, nullptr);
}

static void initNotingSource(GTypeInstance* source, gpointer /*typeClass*/)
{
    g_signal_connect(source, "notify", G_CALLBACK(noteProperty), nullptr);
}

/// Makes a factory "notingsrc" known, whose elements are appsrc elements that note their settings.
static void registerNotingSource()
{
    GTypeQuery base;
    g_type_query(GST_TYPE_APP_SRC, &base);
    gst_element_register(nullptr, "notingsrc", GST_RANK_NONE,
                         g_type_register_static_simple(
                             GST_TYPE_APP_SRC, "NotingSource", guint16(base.class_size), nullptr,
                             guint16(base.instance_size), initNotingSource, GTypeFlags(0)));
}

static void forgetNotingSource()
{
    GstPluginFeature* factory = gst_registry_lookup_feature(gst_registry_get(), "notingsrc");
    gst_registry_remove_feature(gst_registry_get(), factory);
    gst_object_unref(factory);
}

void TestStreamEngine::sourceTakesItsCapsFirst()
{
    registerNotingSource();
    const ReplacedFactory replaced("appsrc", "notingsrc");
    forgetNotingSource();
    Scene scene(QStringLiteral("audio/x-wav"));
    QVERIFY(scene.engine->setupGstPipeline());
    noted.sort();
    QCOMPARE(noted, (QStringList{"format with caps", "max-bytes with caps"}));
}

void TestStreamEngine::nullPipelineIsRefused()
{
    Scene scene;
    QVERIFY(!scene.engine->initPipeline(nullptr));
    QCOMPARE(scene.log.lines(),
             (QStringList{enterTrace("initPipeline"), "ERROR Failed to create pipeline"}));
}

void TestStreamEngine::missingElementEndsTheBuilding_data()
{
    QTest::addColumn<QByteArray>("factory");
    for (const QByteArray& factory : factories) {
        if (factory != "identity") {
            QTest::newRow(factory.constData()) << factory;
        }
    }
}

void TestStreamEngine::missingElementEndsTheBuilding()
{
    QFETCH(QByteArray, factory);
    const MissingFactory missing(factory.constData());
    {
        Scene scene;
        QVERIFY(!scene.engine->startPlayback());
        QCOMPARE(scene.log.texts("ERROR"),
                 (QStringList{"could not create " + factory + " element",
                              "Failed to setup gst pipeline of simple player"}));
        QVERIFY(!scene.log.lines().contains(leaveTrace("initPipeline")));
        QVERIFY(!scene.engine->initialized);
        QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 0);
        QVERIFY(!scene.engine->sink);
    }
    // What was made before stays, on purpose, and belongs to nobody.
    QStringList abandoned = types.mid(0, int(factories.indexOf(factory)));
    abandoned.sort();
    QCOMPARE(freeAbandonedGstElements(), abandoned);
}

void TestStreamEngine::missingIdentityShowsWhenLinking()
{
    const MissingFactory missing("identity");
    {
        Scene scene;
        QVERIFY(!scene.engine->startPlayback());
        QCOMPARE(scene.log.texts("ERROR"),
                 (QStringList{"Failed to link appsrc, identity and decodebin",
                              "Failed to setup gst pipeline of simple player"}));
        // The list of elements to add ended where the missing one would be.
        QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 1);
        QCOMPARE(GST_OBJECT_PARENT(scene.engine->appsrc), GST_OBJECT(scene.engine->pipeline));
        QVERIFY(scene.engine->sink);
    }
    QCOMPARE(freeAbandonedGstElements(),
             (QStringList{"GstAlsaSink", "GstAudioConvert", "GstAudioResample", "GstDecodeBin",
                          "GstQueue"}));
}

void TestStreamEngine::sourceThatCannotBeLinkedEndsTheBuilding()
{
    Scene scene;
    const ReplacedFactory replaced("identity", "fakesrc"); // has no pad to link to
    QVERIFY(!scene.engine->startPlayback());
    QCOMPARE(scene.log.texts("ERROR"),
             (QStringList{"Failed to link appsrc, identity and decodebin",
                          "Failed to setup gst pipeline of simple player"}));
    QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 7);
}

void TestStreamEngine::chainThatCannotBeLinkedEndsTheBuilding()
{
    Scene scene;
    const ReplacedFactory replaced("audioconvert", "pipeline");
    QVERIFY(!scene.engine->startPlayback());
    QCOMPARE(scene.log.texts("ERROR"),
             (QStringList{"Failed to link rest of the elements",
                          "Failed to setup gst pipeline of simple player"}));
    QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 7);
}

void TestStreamEngine::audioPadIsLinkedToTheQueue()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    GstPad* pad = announcePad(scene.engine->decodebin, "src", "audio/x-raw");
    GstPad* peer = gst_pad_get_peer(pad);
    QVERIFY(peer);
    QCOMPARE(GST_PAD_PARENT(peer), scene.engine->queue);
    gst_object_unref(peer);
    QCOMPARE(scene.log.lines(),
             (QStringList{enterTrace("newPadCallback"), leaveTrace("newPadCallback")}));
}

void TestStreamEngine::otherPadIsSkipped()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    QVERIFY(!gst_pad_is_linked(announcePad(scene.engine->decodebin, "src", "video/x-raw")));
    QCOMPARE(scene.log.lines(), (QStringList{enterTrace("newPadCallback"),
                                             "WARN Skipping non-audio pad from uridecodebin",
                                             leaveTrace("newPadCallback")}));
}

void TestStreamEngine::linkedPadIsLeftAlone()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    GstPad* pad = announcePad(scene.engine->decodebin, "src", "audio/x-raw");
    scene.log.clear();
    scene.engine->newPadCallback(pad);
    QCOMPARE(scene.log.lines(), (QStringList{enterTrace("newPadCallback"),
                                             "WARN Cannot link already linked pad - skipping"}));
}

void TestStreamEngine::secondAudioPadFindsTheQueueTaken()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    GstPad* first = announcePad(scene.engine->decodebin, "src", "audio/x-raw");
    scene.log.clear();
    QVERIFY(!gst_pad_is_linked(announcePad(scene.engine->decodebin, "src2", "audio/x-raw")));
    QVERIFY(gst_pad_is_linked(first));
    QCOMPARE(scene.log.lines(),
             (QStringList{enterTrace("newPadCallback"), leaveTrace("newPadCallback")}));
}

// ---- Reader ------------------------------------------------------------------------------------

void TestStreamEngine::bytesBeforeTheStartCloseThePipeForGood()
{
    Scene scene;
    scene.write("early");
    QTRY_COMPARE_WITH_TIMEOUT(scene.engine->reader(), QStringLiteral("ended"), patience);
    QStringList lines = scene.lines();
    QVERIFY(lines.takeFirst().startsWith(
        "TRACE Enter SimplePlayer StreamSimplePlayerImpl::on_readPipeNotifier_activated: sock: "));
    QCOMPARE(lines, QStringList{"TRACE Gst pipeline was removed, not processing data"} + closing() +
                        QStringList{leaveTrace("on_readPipeNotifier_activated", "token T")});
    QVERIFY(scene.engine->setupGstPipeline());
    QCOMPARE(scene.engine->reader(), QStringLiteral("ended"));
    QVERIFY(QFile::exists(scene.path)); // for the writer it stays where it is
}

void TestStreamEngine::blocksAreReadOneForEachActivation()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.write(QByteArray(10000, 'x'));
    scene.log.clear();
    // The source was never started, so that it keeps what it is given.
    scene.engine->activate();
    QCOMPARE(scene.lines(),
             (QStringList{enterTrace("on_readPipeNotifier_activated", "sock: 7 token: T"),
                          "TRACE Pushed buffer of size 4096, ret: 0",
                          leaveTrace("on_readPipeNotifier_activated")}));
    QCOMPARE(scene.engine->reader(), QStringLiteral("reading"));
    QCOMPARE(gst_app_src_get_current_level_bytes(GST_APP_SRC(scene.engine->appsrc)), guint64(4096));
    scene.log.clear();
    // With a block queued already the source asks, inside the push, to hold the reader.
    scene.engine->activate();
    QCOMPARE(
        scene.lines(),
        (QStringList{enterTrace("on_readPipeNotifier_activated", "sock: 7 token: T"),
                     enterTrace("on_receiveNewData", "read: 0 token: T"),
                     leaveTrace("on_receiveNewData"), "TRACE Pushed buffer of size 4096, ret: 0",
                     leaveTrace("on_readPipeNotifier_activated")}));
    QCOMPARE(scene.engine->reader(), QStringLiteral("held"));
    scene.log.clear();
    scene.engine->activate();
    QVERIFY(scene.lines().contains("TRACE Pushed buffer of size 1808, ret: 0"));
    QCOMPARE(gst_app_src_get_current_level_bytes(GST_APP_SRC(scene.engine->appsrc)),
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

void TestStreamEngine::blocksArriveUnchanged()
{
    QByteArray bytes;
    for (int i = 0; i < 10000; ++i) {
        bytes.append(char(i * 7 + i / 256));
    }
    const ReplacedFactory replaced("decodebin", "fakesink");
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    Passed passed;
    passed.watch(scene.engine->appsrc);
    // Another process writes, and the notifier alone drives the reader.
    QVERIFY(scene.engine->startPlayback());
    // The chain's sink never gets a sample: the pipeline as a whole stays on its way to PAUSED.
    gst_element_set_state(scene.engine->decodebin, GST_STATE_PLAYING);
    PipeWriter writer(scene.path, bytes);
    QTRY_VERIFY_WITH_TIMEOUT(passed.ended.loadAcquire() == 1, patience);
    QVERIFY(writer.waitForFinished());
    QVERIFY(passed.bytes == bytes);
    QVERIFY(*std::max_element(passed.sizes.begin(), passed.sizes.end()) <= 4096);
    QVERIFY(!passed.timesSet);
    QTRY_COMPARE_WITH_TIMEOUT(scene.engine->reader(), QStringLiteral("ended"), patience);
    QVERIFY(scene.engine->stopPlayback());
}

void TestStreamEngine::endOfTheWriterEndsTheStream()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.write("x");
    scene.engine->activate();
    scene.closeWriter();
    scene.log.clear();
    scene.engine->activate();
    QCOMPARE(scene.lines(),
             QStringList{enterTrace("on_readPipeNotifier_activated", "sock: 7 token: T")} +
                 QStringList{"DEBUG read: 0, closing pipe t:T"} + closing() +
                 QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QCOMPARE(scene.engine->reader(), QStringLiteral("ended"));
    // A second end is refused by a source that has one already.
    QCOMPARE(gst_app_src_push_buffer(GST_APP_SRC(scene.engine->appsrc), gst_buffer_new()),
             GST_FLOW_EOS);
    QVERIFY(QFile::exists(scene.path));
}

void TestStreamEngine::failedReadEndsTheStreamToo()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.write("x");
    scene.engine->activate();
    scene.log.clear();
    scene.engine->activate(); // a writer is there and has written nothing: -EAGAIN
    QCOMPARE(scene.lines().mid(1),
             QStringList{QStringLiteral("DEBUG read: %1, closing pipe t:T").arg(-EAGAIN)} +
                 closing() + QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QCOMPARE(scene.engine->reader(), QStringLiteral("ended"));
}

/// Has the source refuse everything from now on, as one does whose pipeline was stopped.
static void makeFlushing(OpenEngine& engine)
{
    gst_element_set_state(engine.appsrc, GST_STATE_PAUSED);
    gst_element_set_state(engine.appsrc, GST_STATE_NULL);
    // The start had asked for data.
    QCoreApplication::processEvents();
}

void TestStreamEngine::refusedPushIsReported_data()
{
    QTest::addColumn<bool>("flushing");
    QTest::addColumn<int>("ret");
    QTest::newRow("flushing") << true << int(GST_FLOW_FLUSHING);
    QTest::newRow("end of stream") << false << int(GST_FLOW_EOS);
}

void TestStreamEngine::refusedPushIsReported()
{
    QFETCH(bool, flushing);
    QFETCH(int, ret);
    Scene scene;
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.engine->setupGstPipeline());
    if (flushing) {
        makeFlushing(*scene.engine);
    } else {
        gst_app_src_end_of_stream(GST_APP_SRC(scene.engine->appsrc));
    }
    scene.write("four");
    scene.log.clear();
    scene.engine->activate();
    QCOMPARE(scene.lines().mid(1),
             QStringList{QStringLiteral("TRACE Pushed buffer of size 4, ret: %1").arg(ret)} +
                 QStringList{QStringLiteral("ERROR Unable to push buffer, ret: %1").arg(ret)} +
                 releasing() + QStringList{"DEBUG token: T"} + closing() +
                 QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QVERIFY(!scene.engine->pipeline);
    QCOMPARE(scene.engine->reader(), QStringLiteral("ended"));
    QCOMPARE(outcomes.all, QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Failed to push buffer"},
                              patience);
}

void TestStreamEngine::refusedEndIsReported()
{
    Scene scene;
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.engine->setupGstPipeline());
    makeFlushing(*scene.engine);
    scene.log.clear();
    scene.engine->activate(); // no writer: reads 0
    QCOMPARE(scene.lines().mid(1), QStringList{"DEBUG read: 0, closing pipe t:T"} +
                                       QStringList{"ERROR Failed to flush pipeline"} + releasing() +
                                       QStringList{"DEBUG token: T"} + closing() +
                                       QStringList{leaveTrace("on_readPipeNotifier_activated")});
    QVERIFY(!scene.engine->pipeline);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Failed to flush pipeline"},
                              patience);
}

void TestStreamEngine::notificationAfterTheCloseIsIgnored()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.engine->closeReadPipe();
    scene.log.clear();
    scene.engine->activate(-1);
    QCOMPARE(scene.lines(),
             (QStringList{enterTrace("on_readPipeNotifier_activated", "sock: -1 token: T"),
                          "TRACE Named read pipeline was removed, not processing data",
                          leaveTrace("on_readPipeNotifier_activated", "token T")}));
    // Without a pipeline, either, that comes first.
    scene.engine->releaseGstPipeline();
    scene.log.clear();
    scene.engine->activate();
    QCOMPARE(scene.lines().mid(1),
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

void TestStreamEngine::feedFromTheSameThreadActsAtOnce()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    for (const bool need : {false, false, true, true}) {
        scene.log.clear();
        emitFeed(*scene.engine, need);
        QCOMPARE(scene.log.lines(),
                 (QStringList{enterTrace("on_receiveNewData",
                                         QStringLiteral("read: %1 token: T").arg(int(need))),
                              leaveTrace("on_receiveNewData")}));
        QCOMPARE(scene.engine->reader(), need ? QStringLiteral("reading") : QStringLiteral("held"));
    }
}

void TestStreamEngine::feedFromAnotherThreadIsQueued()
{
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    std::thread([&scene] {
        emitFeed(*scene.engine, false);
        emitFeed(*scene.engine, false);
    }).join();
    QCOMPARE(scene.engine->reader(), QStringLiteral("reading"));
    QCOMPARE(scene.log.lines(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(scene.log.lines().size(), 4, patience); // one call for each signal
    QCOMPARE(scene.engine->reader(), QStringLiteral("held"));
    std::thread([&scene] { emitFeed(*scene.engine, true); }).join();
    QCOMPARE(scene.engine->reader(), QStringLiteral("held"));
    QTRY_COMPARE_WITH_TIMEOUT(scene.engine->reader(), QStringLiteral("reading"), patience);
}

/// Posts an error as an element does, and waits until the engine has told the outcome.
static void postError(Scene& scene)
{
    const Outcomes outcomes(&scene.front);
    GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "no sound");
    GstBus* bus = gst_element_get_bus(scene.engine->pipeline);
    gst_bus_post(bus, gst_message_new_error(nullptr, error, nullptr));
    gst_object_unref(bus);
    g_error_free(error);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: no sound"}, patience);
}

namespace {

/// What may happen to a reader, by name. The pipeline was built and not started.
const QMap<QString, std::function<void(Scene&)>> events{
    {"need-data", [](Scene& scene) { scene.engine->receive(true); }},
    {"enough-data", [](Scene& scene) { scene.engine->receive(false); }},
    {"data",
     [](Scene& scene) {
         if (scene.engine->pipe) {
             scene.write("data");
         }
         scene.engine->activate();
     }},
    {"refused data",
     [](Scene& scene) {
         gst_app_src_end_of_stream(GST_APP_SRC(scene.engine->appsrc));
         events["data"](scene);
     }},
    {"end of data", [](Scene& scene) { scene.engine->activate(); }},
    {"no data",
     [](Scene& scene) {
         events["data"](scene);
         scene.engine->activate();
     }},
    {"pause", [](Scene& scene) { QVERIFY(scene.engine->pausePlayback()); }},
    {"bus error", [](Scene& scene) { postError(scene); }},
    {"bus error and need-data",
     [](Scene& scene) {
         postError(scene);
         scene.engine->receive(true);
     }},
    {"data without a pipeline",
     [](Scene& scene) {
         scene.engine->releaseGstPipeline();
         events["data"](scene);
     }},
    {"stop", [](Scene& scene) { QVERIFY(scene.engine->stopPlayback()); }},
    {"stop and start",
     [](Scene& scene) {
         QVERIFY(scene.engine->stopPlayback());
         QVERIFY(scene.engine->startPlayback());
     }},
    {"close", [](Scene& scene) { scene.engine->closeReadPipe(); }},
    {"destruction", [](Scene& scene) { scene.engine.reset(); }},
};

} // namespace

void TestStreamEngine::readerFollowsItsStates_data()
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
    for (const QString& from : {QStringLiteral("reading"), QStringLiteral("held")}) {
        row(from, "need-data", "reading");
        row(from, "enough-data", "held");
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

void TestStreamEngine::readerFollowsItsStates()
{
    QFETCH(QString, from);
    QFETCH(QString, event);
    QFETCH(QString, to);
    const bool closed = from == "closed";
    Scene scene(QString(), closed ? QString() : Scene::freshFifo());
    QVERIFY(scene.engine->setupGstPipeline());
    if (from == "held") {
        scene.engine->receive(false);
    } else if (from == "ended") {
        scene.engine->closeReadPipe();
    }
    QCOMPARE(scene.reader(), closed ? QStringLiteral("ended") : from);
    events[event](scene);
    QCOMPARE(scene.reader(), to);
    QCOMPARE(scene.fifoHasReader(), to != "ended");
}

void TestStreamEngine::writerIsHeldBeyondABusError_data()
{
    QTest::addColumn<bool>("stop");
    QTest::newRow("stop") << true;
    QTest::newRow("destruction") << false;
}

void TestStreamEngine::writerIsHeldBeyondABusError()
{
    QFETCH(bool, stop);
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    scene.engine->receive(false);
    // More than a pipe holds.
    PipeWriter writer(scene.path, QByteArray(1 << 20, 'x'));
    QVERIFY(writer.waitForOpened());
    postError(scene);
    QVERIFY(!scene.engine->pipeline);
    QCOMPARE(scene.reader(), QStringLiteral("held"));
    QVERIFY(writer.isRunning());
    if (stop) {
        QVERIFY(!scene.engine->stopPlayback());
    } else {
        scene.engine.reset();
    }
    QVERIFY(!writer.waitForFinished()); // it could not write everything
    QVERIFY(!writer.isRunning());
}

/// The elements that an engine points to.
static QVector<GstElement*> membersOf(const OpenEngine& engine)
{
    return {engine.appsrc, engine.decodebin, engine.queue, engine.sink};
}

void TestStreamEngine::startAfterABusErrorReadsOn_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("behind");
    QTest::newRow("held") << QByteArray("before") << QByteArray(" and behind");
    QTest::newRow("quiet") << QByteArray() << QByteArray("behind");
}

void TestStreamEngine::startAfterABusErrorReadsOn()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, behind);
    const ReplacedFactory replaced("decodebin", "fakesink");
    Scene scene;
    QVERIFY(scene.engine->setupGstPipeline());
    if (!before.isEmpty()) {
        scene.engine->receive(false);
        scene.write(before);
    }
    // As long as they live, no new element stands at their places.
    const QVector<GstElement*> old = membersOf(*scene.engine);
    std::for_each(old.begin(), old.end(), gst_object_ref);
    postError(scene);
    QVERIFY(!scene.engine->pipeline);
    QVERIFY(scene.engine->startPlayback());
    for (GstElement* member : membersOf(*scene.engine)) {
        QVERIFY(!old.contains(member));
        QCOMPARE(GST_OBJECT_PARENT(member), GST_OBJECT(scene.engine->pipeline));
    }
    std::for_each(old.begin(), old.end(), gst_object_unref);
    Passed passed;
    passed.watch(scene.engine->appsrc);
    // The chain's sink never gets a sample: the pipeline as a whole stays on its way to PAUSED.
    gst_element_set_state(scene.engine->decodebin, GST_STATE_PLAYING);
    scene.write(behind);
    scene.closeWriter();
    QTRY_VERIFY_WITH_TIMEOUT(passed.ended.loadAcquire() == 1, patience);
    QVERIFY(passed.bytes == before + behind);
    QCOMPARE(scene.reader(), QStringLiteral("ended"));
    QVERIFY(scene.engine->stopPlayback());
}

// ---- End of life -------------------------------------------------------------------------------

void TestStreamEngine::closingTwiceClosesOnce()
{
    Scene scene;
    QPointer<KovaNamedPipe> pipe = scene.engine->pipe;
    scene.engine->closeReadPipe();
    QVERIFY(pipe); // deleted later, for the sake of a notifier whose slot this may be
    QVERIFY(!pipe->readNotifier());
    scene.engine->closeReadPipe();
    QCOMPARE(scene.log.lines(), closing() + closing());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!pipe);
}

void TestStreamEngine::stopClosesThePipeAfterTheBase()
{
    Scene scene;
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    QVERIFY(scene.engine->stopPlayback());
    QCOMPARE(scene.lines(),
             QStringList{enterTrace("stopPlayback")} +
                 QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback", "token: T")} +
                 QStringList{leaveLine("INFO", "SimplePlayerImpl::stopPlayback", "token: T")} +
                 QStringList{"DEBUG token T"} + closing() +
                 QStringList{leaveTrace("stopPlayback")});
    QCOMPARE(outcomes.all, QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"stopped T"}, patience);
    // A later start plays nothing more.
    QVERIFY(scene.engine->startPlayback());
    QCOMPARE(scene.engine->reader(), QStringLiteral("ended"));
    QVERIFY(scene.engine->stopPlayback());
}

void TestStreamEngine::stopWithoutPipelineClosesThePipeToo()
{
    Scene scene;
    const Outcomes outcomes(&scene.front);
    QVERIFY(!scene.engine->stopPlayback());
    QCOMPARE(scene.engine->reader(), QStringLiteral("ended"));
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Not initialized"}, patience);
}

void TestStreamEngine::loopIsRefusedAndTheEndReported()
{
    Scene scene;
    const Outcomes outcomes(&scene.front);
    scene.front.loop = true;
    QVERIFY(scene.engine->setupGstPipeline());
    GstBus* bus = gst_element_get_bus(scene.engine->pipeline);
    gst_bus_post(bus, gst_message_new_eos(nullptr));
    gst_object_unref(bus);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"ended T"}, patience);
    QCOMPARE(scene.log.texts("ERROR"), QStringList{"Restart(loop) playback not implemented"});
}

void TestStreamEngine::destructorReleasesThePipelineThenClosesThePipe()
{
    Scene scene;
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    scene.engine.reset();
    QCOMPARE(scene.log.lines().mid(0, 7),
             QStringList{enterTrace("~StreamSimplePlayerImpl", "destructor T")} + releasing() +
                 closing() + QStringList{leaveTrace("~StreamSimplePlayerImpl", "destructor T")});
    QCOMPARE(scene.log.lines().at(7),
             enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T"));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestStreamEngine)
#include "tst_streamengine.moc"
