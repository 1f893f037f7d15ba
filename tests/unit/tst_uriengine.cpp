#include "unit/OpenEngines.h"
#include "unit/TestEngine.h"

#include "kit/GstFaults.h"
#include "kit/GstLeaks.h"
#include "kit/Latin1Locale.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <memory>

namespace {

/// A front object and an open engine for it. The front object's own engine stays unused.
struct Scene
{
    explicit Scene(const QString& item, const QString& device = QStringLiteral("null"))
        : front(QString(), QStringLiteral("front"), QString()),
          engine(new OpenUriEngine(item, QStringLiteral("T"), device, &front))
    {
        log.clear();
    }

    LogCapture log;
    UriSimplePlayer front;
    std::unique_ptr<OpenUriEngine> engine;
};

/// Stands in for uridecodebin: it takes a URI and never finds anything there.
struct IdleDecoder
{
    GstBin parent;
};

struct IdleDecoderClass
{
    GstBinClass parent;
};

G_DEFINE_TYPE(IdleDecoder, idle_decoder, GST_TYPE_BIN)

void idle_decoder_class_init(IdleDecoderClass* decoderClass)
{
    GObjectClass* objectClass = G_OBJECT_CLASS(decoderClass);
    objectClass->set_property = [](GObject*, guint, const GValue*, GParamSpec*) {};
    g_object_class_install_property(
        objectClass, 1, g_param_spec_string("uri", "uri", "uri", nullptr, G_PARAM_WRITABLE));
}

void idle_decoder_init(IdleDecoder*)
{
}

/// What the engine makes, in order.
const QByteArrayList factories{"uridecodebin", "queue", "audioconvert", "audioresample",
                               "alsasink"};

} // namespace

/// URI making, the pipeline of the URI engine, its decoded pads and its restart.
class TestUriEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void uriIsMadeFromTheItem_data();
    void uriIsMadeFromTheItem();
    void missingFileIsLoggedAsTheClientNamedIt_data();
    void missingFileIsLoggedAsTheClientNamedIt();
    void noFileHasANullCharacterInItsName();
    void frontObjectForwardsToItsEngine();
    void frontObjectForwardsSuccessToo();

    void pipelineHasItsElements();
    void uriIsSetAsUtf8_data();
    void uriIsSetAsUtf8();
    void pipelineCanBeBuiltAgainAfterARelease();
    void nullPipelineIsRefused_data();
    void nullPipelineIsRefused();
    void emptyUriIsRefusedAtStart();
    void missingElementEndsTheBuilding_data();
    void missingElementEndsTheBuilding();
    void missingElementLeavesItsMemberNull();
    void chainThatCannotBeLinkedEndsTheBuilding();

    void audioPadIsLinkedToTheQueue();
    void otherPadIsSkippedWithTheUri();
    void linkedPadIsLeftAlone();

    void restartSeeksTheDecoderBackToTheBeginning();
    void restartFailsWhenNothingCanSeek();
    void loopWhoseSeekFailsEndsOnce();

    void destructorReleasesThePipelineFirst();

private:
    QString file;
};

void TestUriEngine::initTestCase()
{
    // Nothing here is decoded: any content will do.
    file = TestProcess::path(QStringLiteral("a b.wav"));
    for (const char* name :
         {"a b.wav", "a%20b.wav", "http:", "HTTP:", "\xc3\xa4.wav", "\xe8\xaa\x9e.wav"}) {
        QFile made(TestProcess::path(QString::fromUtf8(name)));
        QVERIFY(made.open(QIODevice::WriteOnly));
    }
    QVERIFY(QFile::link(file, TestProcess::path(QStringLiteral("link.wav"))));
    QVERIFY(QDir().mkpath(TestProcess::path(QStringLiteral("folder"))));
    QVERIFY(QDir::setCurrent(TestProcess::path()));
}

void TestUriEngine::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

void TestUriEngine::uriIsMadeFromTheItem_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("kind");
    const QString folder = QDir::currentPath() + QLatin1Char('/');
    const auto web = [](const char* item) { QTest::newRow(item) << item << item << "Web URI: "; };
    web("http://host/a.wav");
    web("https://host/a.wav");
    web("http://");
    web("http://host/a b#?%.wav");
    QTest::newRow("absolute path") << file << "file://" + file << "File URI: ";
    QTest::newRow("relative path") << "a b.wav"
                                   << "file://" + folder + "a b.wav"
                                   << "File URI: ";
    QTest::newRow("relative path with dots") << "folder/../a b.wav"
                                             << "file://" + folder + "a b.wav"
                                             << "File URI: ";
    QTest::newRow("file URI") << "file://" + file << "file://" + file << "File URI: ";
    QTest::newRow("file URI with dots") << "file://" + folder + "folder/../a b.wav"
                                        << "file://" + folder + "a b.wav"
                                        << "File URI: ";
    QTest::newRow("file URI of a relative path") << "file://a b.wav"
                                                 << "file://" + folder + "a b.wav"
                                                 << "File URI: ";
    QTest::newRow("percent escape is looked up literally") << "file://a%20b.wav"
                                                           << "file://" + folder + "a%20b.wav"
                                                           << "File URI: ";
    QTest::newRow("folder") << "folder"
                            << "file://" + folder + "folder"
                            << "File URI: ";
    QTest::newRow("link is not followed") << "link.wav"
                                          << "file://" + folder + "link.wav"
                                          << "File URI: ";
    QTest::newRow("no web URI, a file") << "http:"
                                        << "file://" + folder + "http:"
                                        << "File URI: ";
}

void TestUriEngine::uriIsMadeFromTheItem()
{
    QFETCH(QString, item);
    QFETCH(QString, uri);
    QFETCH(QString, kind);
    LogCapture log;
    UriSimplePlayer front(QString(), QStringLiteral("front"), QString());
    log.clear();
    OpenUriEngine engine(item, QStringLiteral("T"), QStringLiteral("device"), &front);
    QCOMPARE(engine.uri, uri);
    QCOMPARE(engine.uriPlayer, &front);
    QCOMPARE(log.lines().mid(2),
             (QStringList{enterLine("TRACE", "makeUriFromPath", qPrintable("path: " + item)),
                          leaveLine("TRACE", "makeUriFromPath", qPrintable(kind + uri))}));
}

void TestUriEngine::missingFileIsLoggedAsTheClientNamedIt_data()
{
    QTest::addColumn<QString>("item");
    QTest::newRow("path") << "missing.wav";
    QTest::newRow("file URI") << "file:///missing/missing.wav";
    QTest::newRow("escaped file URI") << "file://" + QDir::currentPath() + "/folder%2Fx";
    QTest::newRow("web URI in upper case") << "HTTP://host/a.wav";
    QTest::newRow("web URI in mixed case") << "Https://host/a.wav";
    QTest::newRow("file URI in upper case") << "FILE://" + file;
    QTest::newRow("empty") << "";
    QTest::newRow("bare file scheme") << "file://";
    QTest::newRow("blank before a web URI") << " http://host/";
    QTest::newRow("blank before a path") << " a b.wav";
    QTest::newRow("blank behind a path") << "a b.wav ";
}

void TestUriEngine::missingFileIsLoggedAsTheClientNamedIt()
{
    QFETCH(QString, item);
    LogCapture log;
    UriSimplePlayer front(QStringLiteral("a b.wav"), QStringLiteral("front"), QString());
    log.clear();
    OpenUriEngine engine(item, QStringLiteral("T"), QStringLiteral("device"), &front);
    QVERIFY(engine.uri.isNull());
    QCOMPARE(log.lines().mid(2),
             (QStringList{enterLine("TRACE", "makeUriFromPath", qPrintable("path: " + item)),
                          "ERROR File '" + item + "' does not exist"}));
}

void TestUriEngine::noFileHasANullCharacterInItsName()
{
    const Scene scene(file + QChar(QChar::Null) + QStringLiteral("rest"));
    QVERIFY(scene.engine->uri.isNull());
}

void TestUriEngine::frontObjectForwardsToItsEngine()
{
    LogCapture log;
    UriSimplePlayer player(QStringLiteral("missing.wav"), QStringLiteral("T"), QString());
    const Outcomes outcomes(&player);
    log.clear();
    QVERIFY(!player.startPlayback());
    QCOMPARE(log.texts("ERROR").first(), QStringLiteral("Cannot initialize as uri is empty"));
    QVERIFY(!player.pausePlayback());
    QCOMPARE(log.texts("ERROR").last(), QStringLiteral("Pipeline not initialized - not pausing"));
    QVERIFY(!player.stopPlayback());
    QCOMPARE(log.texts("ERROR").last(), QStringLiteral("Pipeline not initialized - not stopping"));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"error T: Not initialized"});
}

void TestUriEngine::frontObjectForwardsSuccessToo()
{
    // A decoder that failed meanwhile would make the calls fail, too.
    const ReplacedFactory idle("uridecodebin", idle_decoder_get_type());
    LogCapture log;
    UriSimplePlayer player(file, QStringLiteral("T"), QStringLiteral("null"));
    const Outcomes outcomes(&player);
    log.setThreshold(log4cplus::INFO_LOG_LEVEL);
    log.clear();
    QVERIFY(player.startPlayback());
    QVERIFY(player.pausePlayback());
    QVERIFY(player.stopPlayback());
    QStringList calls;
    for (const char* call : {"startPlayback", "pausePlayback", "stopPlayback"}) {
        const QByteArray function = QByteArray("SimplePlayerImpl::") + call;
        calls << enterLine("INFO", function.constData(), "token: T")
              << leaveLine("INFO", function.constData(), "token: T");
    }
    QCOMPARE(log.lines(), calls);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
}

void TestUriEngine::pipelineHasItsElements()
{
    Scene scene(file, QStringLiteral("the device"));
    QVERIFY(scene.engine->setupGstPipeline());
    QCOMPARE(scene.log.lines().mid(1, 2),
             (QStringList{enterLine("TRACE", "UriSimplePlayerImpl::initPipeline", "token: T"),
                          leaveLine("TRACE", "UriSimplePlayerImpl::initPipeline", "token: T")}));

    // A bin lists its elements with the latest first.
    QStringList names;
    for (GList* i = GST_BIN_CHILDREN(scene.engine->pipeline); i; i = i->next) {
        names.prepend(QString::fromUtf8(GST_OBJECT_NAME(i->data)));
    }
    QCOMPARE(names,
             (QStringList{"UriDecodeBin", "Queue", "AudioConvert", "AudioResample", "AudioSink"}));
    gchar* uri = nullptr;
    gchar* device = nullptr;
    g_object_get(scene.engine->uriDecodeBin, "uri", &uri, nullptr);
    g_object_get(scene.engine->sink, "device", &device, nullptr);
    QCOMPARE(QByteArray(uri), ("file://" + file).toUtf8());
    QCOMPARE(QByteArray(device), QByteArray("the device"));
    g_free(uri);
    g_free(device);
    QCOMPARE(GST_OBJECT_NAME(scene.engine->queue), "Queue");
    // Until the decoder announces a pad, nothing leads from the source to the sink.
    GstPad* queueSink = gst_element_get_static_pad(scene.engine->queue, "sink");
    QVERIFY(!gst_pad_is_linked(queueSink));
    gst_object_unref(queueSink);
}

void TestUriEngine::uriIsSetAsUtf8_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QByteArray>("uri");
    const QByteArray folder = "file://" + QDir::currentPath().toUtf8() + '/';
    for (const char* name : {"\xc3\xa4.wav", "\xe8\xaa\x9e.wav"}) {
        QTest::newRow(name) << QString::fromUtf8(name) << folder + name;
    }
    QTest::newRow("null character") << QStringLiteral("http://host/a") + QChar(QChar::Null) + "b"
                                    << QByteArray("http://host/a");
}

void TestUriEngine::uriIsSetAsUtf8()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, uri);
    Scene scene(item); // finds its file in the encoding that it was made in
    const Latin1Locale locale;
    QVERIFY(scene.engine->setupGstPipeline());
    gchar* set = nullptr;
    g_object_get(scene.engine->uriDecodeBin, "uri", &set, nullptr);
    QCOMPARE(QByteArray(set), uri);
    g_free(set);
}

void TestUriEngine::pipelineCanBeBuiltAgainAfterARelease()
{
    Scene scene(file);
    QVERIFY(scene.engine->setupGstPipeline());
    scene.engine->releaseGstPipeline();
    QVERIFY(scene.engine->setupGstPipeline());
    QCOMPARE(GST_OBJECT_PARENT(scene.engine->uriDecodeBin), GST_OBJECT(scene.engine->pipeline));
}

void TestUriEngine::nullPipelineIsRefused_data()
{
    QTest::addColumn<QString>("item");
    QTest::newRow("file") << file;
    QTest::newRow("missing file, which is looked at later") << "missing.wav";
}

void TestUriEngine::nullPipelineIsRefused()
{
    QFETCH(QString, item);
    Scene scene(item);
    QVERIFY(!scene.engine->initPipeline(nullptr));
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("TRACE", "UriSimplePlayerImpl::initPipeline", "token: T"),
                          "ERROR Failed to create pipeline"}));
}

void TestUriEngine::emptyUriIsRefusedAtStart()
{
    Scene scene(QStringLiteral("missing.wav"));
    QVERIFY(!scene.engine->startPlayback());
    QCOMPARE(scene.log.texts("ERROR"),
             (QStringList{"Cannot initialize as uri is empty",
                          "Failed to setup gst pipeline of simple player"}));
    QVERIFY(!scene.engine->uriDecodeBin);
}

void TestUriEngine::missingElementEndsTheBuilding_data()
{
    QTest::addColumn<QByteArray>("factory");
    for (const QByteArray& factory : factories) {
        QTest::newRow(factory.constData()) << factory;
    }
}

void TestUriEngine::missingElementEndsTheBuilding()
{
    QFETCH(QByteArray, factory);
    const MissingFactory missing(factory.constData());
    {
        Scene scene(file);
        QVERIFY(!scene.engine->startPlayback());
        QCOMPARE(scene.log.texts("ERROR"),
                 (QStringList{"could not create " + factory + " element",
                              "Failed to setup gst pipeline of simple player"}));
        QVERIFY(!scene.log.lines().contains(
            leaveLine("TRACE", "UriSimplePlayerImpl::initPipeline", "token: T")));
        QVERIFY(!scene.engine->initialized);
        QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 0);
        QCOMPARE(scene.engine->uriDecodeBin != nullptr, factory != "uridecodebin");
        QCOMPARE(scene.engine->queue != nullptr, factory != "uridecodebin" && factory != "queue");
        QVERIFY(!scene.engine->sink);
    }
    // What was made before stays, on purpose, and belongs to nobody.
    const QStringList made{"GstURIDecodeBin", "GstQueue", "GstAudioConvert", "GstAudioResample"};
    QStringList abandoned = made.mid(0, int(factories.indexOf(factory)));
    abandoned.sort();
    QCOMPARE(freeAbandonedGstElements(), abandoned);
}

void TestUriEngine::missingElementLeavesItsMemberNull()
{
    // Also when the member still points to what an earlier pipeline took with it.
    for (const char* factory : {"alsasink", "queue", "uridecodebin"}) {
        Scene scene(file);
        QVERIFY(scene.engine->setupGstPipeline());
        scene.engine->releaseGstPipeline();
        const MissingFactory missing(factory);
        QVERIFY(!scene.engine->setupGstPipeline());
        QCOMPARE(scene.engine->uriDecodeBin == nullptr, !qstrcmp(factory, "uridecodebin"));
        QVERIFY(scene.engine->queue == nullptr || qstrcmp(factory, "queue") != 0);
        QVERIFY(scene.engine->sink == nullptr || qstrcmp(factory, "alsasink") != 0);
    }
    freeAbandonedGstElements();
}

void TestUriEngine::chainThatCannotBeLinkedEndsTheBuilding()
{
    Scene scene(file);
    const ReplacedFactory replaced("audioconvert", "pipeline");
    QVERIFY(!scene.engine->startPlayback());
    QCOMPARE(scene.log.texts("ERROR"),
             (QStringList{"Failed to link gst elements (uri player)",
                          "Failed to setup gst pipeline of simple player"}));
    // All five elements are in the pipeline, which releases them later.
    QCOMPARE(GST_BIN_NUMCHILDREN(scene.engine->pipeline), 5);
}

/// A pad such as uridecodebin announces, added to the engine's decoder.
static GstPad* announcePad(OpenUriEngine& engine, const char* caps)
{
    GstCaps* padCaps = gst_caps_from_string(caps);
    GstPadTemplate* padTemplate = gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, padCaps);
    GstPad* pad = gst_pad_new_from_template(padTemplate, nullptr);
    gst_object_unref(padTemplate);
    gst_caps_unref(padCaps);
    gst_element_add_pad(engine.uriDecodeBin, pad); // emits "pad-added"
    return pad;
}

void TestUriEngine::audioPadIsLinkedToTheQueue()
{
    Scene scene(file);
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    GstPad* pad = announcePad(*scene.engine, "audio/x-raw");
    GstPad* peer = gst_pad_get_peer(pad);
    QVERIFY(peer);
    QCOMPARE(GST_PAD_PARENT(peer), scene.engine->queue);
    gst_object_unref(peer);
    QCOMPARE(scene.log.lines(), QStringList());
}

void TestUriEngine::otherPadIsSkippedWithTheUri()
{
    Scene scene(file);
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    QVERIFY(!gst_pad_is_linked(announcePad(*scene.engine, "video/x-raw")));
    QCOMPARE(scene.log.lines(),
             QStringList{"WARN Skipping non-audio pad from uridecodebin - check the source content "
                         "why file://" +
                         file});
}

void TestUriEngine::linkedPadIsLeftAlone()
{
    Scene scene(file);
    QVERIFY(scene.engine->setupGstPipeline());
    GstPad* pad = announcePad(*scene.engine, "audio/x-raw");
    scene.log.clear();
    scene.engine->newPadCallback(pad);
    QCOMPARE(scene.log.lines(), QStringList{"WARN Cannot link already linked pad - skipping"});
}

// An element that keeps the events it is sent: stands where the decoder would be.
struct EventKeeper
{
    GstElement parent;
    gboolean handles;
    GstEvent* last;
};

struct EventKeeperClass
{
    GstElementClass parent;
};

G_DEFINE_TYPE(EventKeeper, event_keeper, GST_TYPE_ELEMENT)

static void event_keeper_class_init(EventKeeperClass* elementClass)
{
    GST_ELEMENT_CLASS(elementClass)->send_event = [](GstElement* element, GstEvent* event) {
        auto* keeper = reinterpret_cast<EventKeeper*>(element);
        gst_clear_event(&keeper->last);
        keeper->last = event;
        return keeper->handles;
    };
    G_OBJECT_CLASS(elementClass)->finalize = [](GObject* object) {
        gst_clear_event(&reinterpret_cast<EventKeeper*>(object)->last);
        G_OBJECT_CLASS(event_keeper_parent_class)->finalize(object);
    };
}

static void event_keeper_init(EventKeeper*)
{
}

static EventKeeper* putInPlaceOfTheDecoder(OpenUriEngine& engine, bool handles)
{
    auto* keeper = static_cast<EventKeeper*>(g_object_new(event_keeper_get_type(), nullptr));
    keeper->handles = handles;
    gst_bin_add(GST_BIN(engine.pipeline), &keeper->parent);
    engine.uriDecodeBin = &keeper->parent;
    return keeper;
}

void TestUriEngine::restartSeeksTheDecoderBackToTheBeginning()
{
    Scene scene(file);
    QVERIFY(scene.engine->setupGstPipeline());
    const EventKeeper* decoder = putInPlaceOfTheDecoder(*scene.engine, true);
    scene.log.clear();
    QVERIFY(scene.engine->restartPlayback());
    QVERIFY(decoder->last);
    QCOMPARE(GST_EVENT_TYPE(decoder->last), GST_EVENT_SEEK);
    gdouble rate = 0;
    GstFormat format = GST_FORMAT_UNDEFINED;
    GstSeekFlags flags = GST_SEEK_FLAG_NONE;
    GstSeekType startType = GST_SEEK_TYPE_NONE;
    GstSeekType stopType = GST_SEEK_TYPE_SET;
    gint64 start = -1;
    gint64 stop = 0;
    gst_event_parse_seek(decoder->last, &rate, &format, &flags, &startType, &start, &stopType,
                         &stop);
    QCOMPARE(rate, 1.0);
    QCOMPARE(format, GST_FORMAT_TIME);
    QCOMPARE(int(flags), int(GST_SEEK_FLAG_FLUSH));
    QCOMPARE(startType, GST_SEEK_TYPE_SET);
    QCOMPARE(start, gint64(0));
    QCOMPARE(stopType, GST_SEEK_TYPE_NONE);
    QCOMPARE(stop, gint64(-1));
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("DEBUG", "UriSimplePlayerImpl::restartPlayback",
                                    "Seeking back to beginning"),
                          leaveLine("DEBUG", "UriSimplePlayerImpl::restartPlayback", "")}));
}

void TestUriEngine::restartFailsWhenNothingCanSeek()
{
    Scene scene(file);
    QVERIFY(scene.engine->setupGstPipeline());
    putInPlaceOfTheDecoder(*scene.engine, false);
    scene.log.clear();
    QVERIFY(!scene.engine->restartPlayback());
    QCOMPARE(scene.log.lines(),
             (QStringList{enterLine("DEBUG", "UriSimplePlayerImpl::restartPlayback",
                                    "Seeking back to beginning"),
                          "ERROR Failed to seek to beginning"}));
}

void TestUriEngine::loopWhoseSeekFailsEndsOnce()
{
    Scene scene(file);
    const Outcomes outcomes(&scene.front);
    scene.front.loop = true;
    QVERIFY(scene.engine->setupGstPipeline());
    putInPlaceOfTheDecoder(*scene.engine, false);
    GstBus* bus = gst_element_get_bus(scene.engine->pipeline);
    gst_bus_post(bus, gst_message_new_eos(nullptr));
    gst_object_unref(bus);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"ended T"}, patience);
    QCOMPARE(scene.log.texts("ERROR"), QStringList{"Failed to seek to beginning"});
}

void TestUriEngine::destructorReleasesThePipelineFirst()
{
    Scene scene(file);
    const Outcomes outcomes(&scene.front);
    QVERIFY(scene.engine->setupGstPipeline());
    scene.log.clear();
    scene.engine.reset();
    QCOMPARE(
        scene.log.lines(),
        (QStringList{enterLine("TRACE", "UriSimplePlayerImpl::~UriSimplePlayerImpl",
                               "Stopping playback at destructor"),
                     enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                     "TRACE Releasing active playback pipeline",
                     leaveLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                     leaveLine("TRACE", "UriSimplePlayerImpl::~UriSimplePlayerImpl", ""),
                     enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T"),
                     enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline", "token: T"),
                     "TRACE Pipeline is already released",
                     leaveLine("TRACE", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T")}));
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestUriEngine)
#include "tst_uriengine.moc"
