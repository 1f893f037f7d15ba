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
struct Fixture
{
    explicit Fixture(const QString& item, const QString& device = QStringLiteral("null"))
        : front(QString(), QStringLiteral("front"), QString()),
          engine(new OpenUriEngine(item, QStringLiteral("T"), device, &front))
    {
        log.clear();
    }

    LogCapture log;
    UriSimplePlayer front;
    std::unique_ptr<OpenUriEngine> engine;
};

/// Takes the place of uridecodebin: it accepts a URI and never finds anything there.
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

} // namespace

/// The URI of an item, building the pipeline with it, and the restart.
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
    void frontObjectForwardsSuccessToo();

    void uriIsSetAsUtf8_data();
    void uriIsSetAsUtf8();
    void emptyUriIsRefusedAtStart();
    void nullPipelineIsRefusedBeforeAnEmptyUri();
    void missingElementLeavesItsMemberNull();

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
    const Fixture fixture(file + QChar(QChar::Null) + QStringLiteral("rest"));
    QVERIFY(fixture.engine->uri.isNull());
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
        calls << enterLine("INFO", function.constData()) << leaveLine("INFO", function.constData());
    }
    QCOMPARE(log.lines(), calls);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
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
    Fixture fixture(item); // finds its file in the encoding that it was made in
    const Latin1Locale locale;
    QVERIFY(fixture.engine->setupGstPipeline());
    gchar* set = nullptr;
    g_object_get(fixture.engine->uriDecodeBin, "uri", &set, nullptr);
    QCOMPARE(QByteArray(set), uri);
    g_free(set);
}

void TestUriEngine::emptyUriIsRefusedAtStart()
{
    Fixture fixture(QStringLiteral("missing.wav"));
    QVERIFY(!fixture.engine->startPlayback());
    QCOMPARE(fixture.log.texts("ERROR"),
             (QStringList{"Cannot initialize as uri is empty", setupFailure}));
    QVERIFY(!fixture.engine->uriDecodeBin);
}

void TestUriEngine::nullPipelineIsRefusedBeforeAnEmptyUri()
{
    const Fixture fixture(QStringLiteral("missing.wav"));
    QVERIFY(!fixture.engine->initPipeline(nullptr));
    QCOMPARE(fixture.log.texts("ERROR"), QStringList{"Failed to create pipeline"});
}

void TestUriEngine::missingElementLeavesItsMemberNull()
{
    // Also when the member still points to what an earlier pipeline took with it.
    for (const char* factory : {"alsasink", "queue", "uridecodebin"}) {
        Fixture fixture(file);
        QVERIFY(fixture.engine->setupGstPipeline());
        fixture.engine->releaseGstPipeline();
        const MissingFactory missing(factory);
        QVERIFY(!fixture.engine->setupGstPipeline());
        QCOMPARE(fixture.engine->uriDecodeBin == nullptr, !qstrcmp(factory, "uridecodebin"));
        QVERIFY(fixture.engine->queue == nullptr || qstrcmp(factory, "queue") != 0);
        QVERIFY(fixture.engine->sink == nullptr || qstrcmp(factory, "alsasink") != 0);
    }
    freeAbandonedGstElements();
}

// An element that keeps the events it is sent, in the place of the decoder.
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
    Fixture fixture(file);
    QVERIFY(fixture.engine->setupGstPipeline());
    const EventKeeper* decoder = putInPlaceOfTheDecoder(*fixture.engine, true);
    fixture.log.clear();
    QVERIFY(fixture.engine->restartPlayback());
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
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("DEBUG", "UriSimplePlayerImpl::restartPlayback",
                                    "Seeking back to beginning"),
                          leaveLine("DEBUG", "UriSimplePlayerImpl::restartPlayback", "")}));
}

void TestUriEngine::restartFailsWhenNothingCanSeek()
{
    Fixture fixture(file);
    QVERIFY(fixture.engine->setupGstPipeline());
    putInPlaceOfTheDecoder(*fixture.engine, false);
    fixture.log.clear();
    QVERIFY(!fixture.engine->restartPlayback());
    QCOMPARE(fixture.log.lines(),
             (QStringList{enterLine("DEBUG", "UriSimplePlayerImpl::restartPlayback",
                                    "Seeking back to beginning"),
                          "ERROR Failed to seek to beginning"}));
}

void TestUriEngine::loopWhoseSeekFailsEndsOnce()
{
    Fixture fixture(file);
    const Outcomes outcomes(&fixture.front);
    fixture.front.loop = true;
    QVERIFY(fixture.engine->setupGstPipeline());
    putInPlaceOfTheDecoder(*fixture.engine, false);
    GstBus* bus = gst_element_get_bus(fixture.engine->pipeline);
    gst_bus_post(bus, gst_message_new_eos(nullptr));
    gst_object_unref(bus);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"ended T"}, patience);
    QCOMPARE(fixture.log.texts("ERROR"), QStringList{"Failed to seek to beginning"});
}

void TestUriEngine::destructorReleasesThePipelineFirst()
{
    Fixture fixture(file);
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.log.clear();
    fixture.engine.reset();
    const QStringList before{enterLine("TRACE", "UriSimplePlayerImpl::~UriSimplePlayerImpl",
                                       "Stopping playback at destructor")};
    const QStringList after{
        leaveLine("TRACE", "UriSimplePlayerImpl::~UriSimplePlayerImpl", ""),
        enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T"),
        enterLine("TRACE", "SimplePlayerImpl::releaseGstPipeline"),
        "TRACE Pipeline is already released",
        leaveLine("TRACE", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T")};
    QCOMPARE(fixture.log.lines(), before + releasing() + after);
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestUriEngine)
#include "tst_uriengine.moc"
