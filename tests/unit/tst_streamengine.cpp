#include "unit/StreamFixture.h"

#include "kit/GstLeaks.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QPointer>
#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

#include <gst/app/gstappsrc.h>

#include <sys/stat.h>

/// Construction, pipeline and teardown of the engine that plays a named pipe.
class TestStreamEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void constructorOpensThePipe();
    void constructionContinuesWithoutAPipe_data();
    void constructionContinuesWithoutAPipe();

    void sourceIsAStreamInTime();
    void sourceTakesItsCaps_data();
    void sourceTakesItsCaps();
    void sourceTakesItsCapsFirst();
    void missingIdentityShowsWhenLinking();
    void sourceThatCannotBeLinkedEndsTheBuilding();

    void closingTwiceClosesOnce();
    void stopClosesThePipeAfterTheBase();
    void stopWithoutPipelineClosesThePipeToo();
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
    const QString path = newFifoPath();
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

void TestStreamEngine::constructionContinuesWithoutAPipe_data()
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

void TestStreamEngine::constructionContinuesWithoutAPipe()
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

// ---- Pipeline ----------------------------------------------------------------------------------

void TestStreamEngine::sourceIsAStreamInTime()
{
    StreamFixture fixture;
    QVERIFY(fixture.engine->setupGstPipeline());
    gint streamType = -1;
    gint format = -1;
    guint64 maxBytes = 0;
    g_object_get(fixture.engine->appsrc, "stream-type", &streamType, "format", &format, "max-bytes",
                 &maxBytes, nullptr);
    QCOMPARE(streamType, int(GST_APP_STREAM_TYPE_STREAM));
    QCOMPARE(format, int(GST_FORMAT_TIME));
    QCOMPARE(maxBytes, guint64(1000));
    GstElement* identity = gst_bin_get_by_name(GST_BIN(fixture.engine->pipeline), "Identity");
    gboolean silent = TRUE;
    g_object_get(identity, "silent", &silent, nullptr);
    gst_object_unref(identity);
    QVERIFY(!silent);
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
    StreamFixture fixture(text);
    // The text is handed over in the encoding of the locale.
    QTextCodec* const previous = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
    QVERIFY(fixture.engine->setupGstPipeline());
    QTextCodec::setCodecForLocale(previous);
    GstCaps* set = gst_app_src_get_caps(GST_APP_SRC(fixture.engine->appsrc));
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
    StreamFixture fixture(QStringLiteral("audio/x-wav"));
    QVERIFY(fixture.engine->setupGstPipeline());
    noted.sort();
    QCOMPARE(noted, (QStringList{"format with caps", "max-bytes with caps"}));
}

void TestStreamEngine::missingIdentityShowsWhenLinking()
{
    const MissingFactory missing("identity");
    {
        StreamFixture fixture;
        QVERIFY(!fixture.engine->startPlayback());
        QCOMPARE(fixture.log.texts("ERROR"),
                 (QStringList{"Failed to link appsrc, identity and decodebin", setupFailure}));
        // The list of elements to add ended where the missing one would be.
        QCOMPARE(GST_BIN_NUMCHILDREN(fixture.engine->pipeline), 1);
        QCOMPARE(GST_OBJECT_PARENT(fixture.engine->appsrc), GST_OBJECT(fixture.engine->pipeline));
        QVERIFY(fixture.engine->sink);
    }
    QCOMPARE(freeAbandonedGstElements(),
             (QStringList{"GstAlsaSink", "GstAudioConvert", "GstAudioResample", "GstDecodeBin",
                          "GstQueue"}));
}

void TestStreamEngine::sourceThatCannotBeLinkedEndsTheBuilding()
{
    StreamFixture fixture;
    const ReplacedFactory replaced("identity", "fakesrc"); // has no pad to link to
    QVERIFY(!fixture.engine->startPlayback());
    QCOMPARE(fixture.log.texts("ERROR"),
             (QStringList{"Failed to link appsrc, identity and decodebin", setupFailure}));
    QCOMPARE(GST_BIN_NUMCHILDREN(fixture.engine->pipeline), 7);
}

// ---- Teardown -------------------------------------------------------------------------------

void TestStreamEngine::closingTwiceClosesOnce()
{
    StreamFixture fixture;
    QPointer<KovaNamedPipe> pipe = fixture.engine->pipe;
    fixture.engine->closeReadPipe();
    QVERIFY(pipe); // deleted later, for the sake of a notifier whose slot this may be
    QVERIFY(!pipe->readNotifier());
    fixture.engine->closeReadPipe();
    QCOMPARE(fixture.log.lines(), closing() + closing());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!pipe);
}

void TestStreamEngine::stopClosesThePipeAfterTheBase()
{
    StreamFixture fixture;
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.log.clear();
    QVERIFY(fixture.engine->stopPlayback());
    QCOMPARE(fixture.lines(), QStringList{enterTrace("stopPlayback")} +
                                  QStringList{enterLine("INFO", "SimplePlayerImpl::stopPlayback")} +
                                  QStringList{leaveLine("INFO", "SimplePlayerImpl::stopPlayback")} +
                                  QStringList{"DEBUG token T"} + closing() +
                                  QStringList{leaveTrace("stopPlayback")});
    QCOMPARE(outcomes.all, QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"stopped T"}, patience);
    // A later start plays nothing more.
    QVERIFY(fixture.engine->startPlayback());
    QCOMPARE(fixture.engine->reader(), QStringLiteral("ended"));
    QVERIFY(fixture.engine->stopPlayback());
}

void TestStreamEngine::stopWithoutPipelineClosesThePipeToo()
{
    StreamFixture fixture;
    const Outcomes outcomes(&fixture.front);
    QVERIFY(!fixture.engine->stopPlayback());
    QCOMPARE(fixture.engine->reader(), QStringLiteral("ended"));
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.all, QStringList{"error T: Not initialized"}, patience);
}

void TestStreamEngine::destructorReleasesThePipelineThenClosesThePipe()
{
    StreamFixture fixture;
    const Outcomes outcomes(&fixture.front);
    QVERIFY(fixture.engine->setupGstPipeline());
    fixture.log.clear();
    fixture.engine.reset();
    QCOMPARE(fixture.log.lines().mid(0, 7),
             QStringList{enterTrace("~StreamSimplePlayerImpl", "destructor T")} + releasing() +
                 closing() + QStringList{leaveTrace("~StreamSimplePlayerImpl", "destructor T")});
    QCOMPARE(fixture.log.lines().at(7),
             enterLine("INFO", "SimplePlayerImpl::~SimplePlayerImpl", "destructor T"));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList());
}

KOVA_TEST(TestStreamEngine)
#include "tst_streamengine.moc"
