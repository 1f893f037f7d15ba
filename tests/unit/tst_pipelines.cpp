#include "unit/DecoderPads.h"
#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/SourceEngine.h"
#include "kit/TestMain.h"

#include <QtTest/QtTest>

#include <memory>

namespace {

/// An element that an engine creates.
struct Made
{
    QByteArray factory;
    QString type;
    QString name;
};

/// What the engine of a kind of source builds and logs.
struct Description
{
    const char* source;
    const char* engine;   ///< its class, as log lines name it
    QVector<Made> made;   ///< in the order of their creation
    QStringList elements; ///< of the pipeline, in the order of their addition
    QString decoder;      ///< the name of the element that announces decoded pads
    QString noPipeline;   ///< logged by initPipeline() without a pipeline
    QString linkFailure;  ///< logged if the output chain cannot be linked
    const char* padLevel; ///< of the entry and leave lines about decoded pads; null without them
    bool leavesAfterSkip; ///< whether a pad that is skipped gets a leave line
    QString skipped;      ///< logged for a pad without audio; %1 is the item's file
};

const Made queue{"queue", "GstQueue", "Queue"};
const Made audioconvert{"audioconvert", "GstAudioConvert", "AudioConvert"};
const Made audioresample{"audioresample", "GstAudioResample", "AudioResample"};
const Made alsasink{"alsasink", "GstAlsaSink", "AudioSink"};
const Made appsrc{"appsrc", "GstAppSrc", "AppSrc"};
const Made decodebin{"decodebin", "GstDecodeBin", "DecodeBin"};

const QVector<Description> descriptions{
    {"uri",
     "UriSimplePlayerImpl",
     {{"uridecodebin", "GstURIDecodeBin", "UriDecodeBin"},
      queue,
      audioconvert,
      audioresample,
      alsasink},
     {"UriDecodeBin", "Queue", "AudioConvert", "AudioResample", "AudioSink"},
     "UriDecodeBin",
     "Failed to create pipeline",
     "Failed to link gst elements (uri player)",
     nullptr,
     false,
     "Skipping non-audio pad from uridecodebin - check the source content why file://%1"},
    {"data",
     "DataSimplePlayerImpl",
     {appsrc, decodebin, queue, audioconvert, audioresample, alsasink},
     {"AppSrc", "DecodeBin", "Queue", "AudioConvert", "AudioResample", "AudioSink"},
     "DecodeBin",
     "No pipeline to initialize player to",
     "Failed to link rest of the elements",
     "DEBUG",
     false,
     "Skipping non-audio pad from uridecodebin"},
    {"stream",
     "StreamSimplePlayerImpl",
     {appsrc,
      decodebin,
      queue,
      audioconvert,
      audioresample,
      {"identity", "GstIdentity", "Identity"},
      alsasink},
     {"AppSrc", "Identity", "DecodeBin", "Queue", "AudioConvert", "AudioResample", "AudioSink"},
     "DecodeBin",
     "Failed to create pipeline",
     "Failed to link rest of the elements",
     "TRACE",
     true,
     "Skipping non-audio pad from uridecodebin"},
};

/// A player whose item is never decoded, its engine, its log and its outcomes.
struct Fixture
{
    explicit Fixture(const Source& source, const QString& device = QStringLiteral("null"))
        : player(source.makePlayer(item, QStringLiteral("T"), device, nullptr)),
          engine(*engineOf(*player)), outcomes(player.get())
    {
        log.clear();
    }

    /// Builds the pipeline.
    bool build()
    {
        const bool built = engine.setupGstPipeline();
        log.clear();
        return built;
    }

    GstBin* bin() const { return GST_BIN(EngineAccess::pipelineOf(engine)); }

    /// The names of the elements in the order of their addition.
    QStringList elements() const
    {
        QStringList names; // a bin lists its elements with the latest first
        for (GList* i = GST_BIN_CHILDREN(bin()); i; i = i->next) {
            names.prepend(QString::fromUtf8(GST_OBJECT_NAME(i->data)));
        }
        return names;
    }

    /// An element of the pipeline, which owns it.
    GstElement* element(const QString& name) const
    {
        GstElement* found = gst_bin_get_by_name(bin(), qPrintable(name));
        gst_object_unref(found);
        return found;
    }

    const Item item{QByteArray("0123456789")};
    LogCapture log;
    const std::unique_ptr<SimplePlayer> player;
    SimplePlayerImpl& engine;
    const Outcomes outcomes;
};

/// The peer of an element's pad as "element.pad"; empty without one.
QString peerOf(GstPad* pad)
{
    GstPad* peer = gst_pad_get_peer(pad);
    if (!peer) {
        return QString();
    }
    const QString name = QStringLiteral("%1.%2").arg(GST_OBJECT_NAME(GST_OBJECT_PARENT(peer)),
                                                     GST_OBJECT_NAME(peer));
    gst_object_unref(peer);
    return name;
}

QString peerOf(GstElement* element, const char* padName)
{
    GstPad* pad = gst_element_get_static_pad(element, padName);
    const QString peer = peerOf(pad);
    gst_object_unref(pad);
    return peer;
}

/// The lines that newPadCallback() logs around others.
QStringList padLines(const Description& expected, const QStringList& lines, bool leaves)
{
    if (!expected.padLevel) {
        return lines;
    }
    const QByteArray function = QByteArray(expected.engine) + "::newPadCallback";
    QStringList all{enterLine(expected.padLevel, function.constData(), "token: T")};
    all += lines;
    if (leaves) {
        all += leaveLine(expected.padLevel, function.constData(), "token: T");
    }
    return all;
}

} // namespace
Q_DECLARE_METATYPE(Description)

/// What the engines of all kinds of source have in common: building a pipeline, each way in which
/// that fails, and linking decoded pads.
class TestPipelines : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void frontObjectForwardsToItsEngine_data() { addSources(); }
    void frontObjectForwardsToItsEngine();
    void pipelineHasItsElements_data() { addSources(); }
    void pipelineHasItsElements();
    void pipelineIsBuiltAgainAfterARelease_data() { addSources(); }
    void pipelineIsBuiltAgainAfterARelease();
    void nullPipelineIsRefused_data() { addSources(); }
    void nullPipelineIsRefused();
    void missingElementEndsTheBuilding_data();
    void missingElementEndsTheBuilding();
    void chainThatCannotBeLinkedEndsTheBuilding_data() { addSources(); }
    void chainThatCannotBeLinkedEndsTheBuilding();

    void audioPadIsLinkedToTheQueue_data() { addSources(); }
    void audioPadIsLinkedToTheQueue();
    void otherPadIsSkipped_data() { addSources(); }
    void otherPadIsSkipped();
    void linkedPadIsLeftAlone_data() { addSources(); }
    void linkedPadIsLeftAlone();
    void secondAudioPadIsOfferedToo_data() { addSources(); }
    void secondAudioPadIsOfferedToo();

    void loopEndsIfTheSourceCannotLoop_data() { addSources(); }
    void loopEndsIfTheSourceCannotLoop();

private:
    static void addSources();
};

void TestPipelines::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

static const Description& descriptionOf(const Source& source)
{
    for (const Description& description : descriptions) {
        if (qstrcmp(description.source, source.name) == 0) {
            return description;
        }
    }
    qFatal("%s is not described", source.name);
}

void TestPipelines::addSources()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<Description>("expected");
    for (const Source* source : Source::all()) {
        QTest::newRow(source->name) << source << descriptionOf(*source);
    }
}

void TestPipelines::frontObjectForwardsToItsEngine()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    const MissingFactory missing(expected.made.first().factory.constData());
    const Fixture fixture(*source);
    QVERIFY(!fixture.player->startPlayback());
    QCOMPARE(fixture.log.texts("ERROR").last(), setupFailure);
    QVERIFY(!fixture.player->pausePlayback());
    QCOMPARE(fixture.log.texts("ERROR").last(), notPausing);
    QVERIFY(!fixture.player->stopPlayback());
    QCOMPARE(fixture.log.texts("ERROR").last(), notStopping);
    deliverQueuedEvents();
    QCOMPARE(fixture.outcomes.all, QStringList{"error T: Not initialized"});
}

void TestPipelines::pipelineHasItsElements()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    const Fixture fixture(*source, QStringLiteral("the device"));
    QVERIFY(fixture.engine.setupGstPipeline());
    const QByteArray function = QByteArray(expected.engine) + "::initPipeline";
    QCOMPARE(fixture.log.lines().mid(1, 2),
             (QStringList{enterLine("TRACE", function.constData()),
                          leaveLine("TRACE", function.constData())}));
    QCOMPARE(fixture.elements(), expected.elements);
    for (const Made& made : expected.made) {
        QCOMPARE(QString(G_OBJECT_TYPE_NAME(fixture.element(made.name))), made.type);
    }
    gchar* device = nullptr;
    g_object_get(fixture.element("AudioSink"), "device", &device, nullptr);
    QCOMPARE(QByteArray(device), QByteArray("the device"));
    g_free(device);

    // Every element is linked to the next one, except that the decoder has no pads yet.
    for (int i = 0; i + 1 < expected.elements.size(); ++i) {
        const QString next = expected.elements.at(i + 1);
        if (expected.elements.at(i) != expected.decoder) {
            QCOMPARE(peerOf(fixture.element(expected.elements.at(i)), "src"), next + ".sink");
        }
    }
    QCOMPARE(peerOf(fixture.element("Queue"), "sink"), QString());
}

void TestPipelines::pipelineIsBuiltAgainAfterARelease()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    Fixture fixture(*source);
    QVERIFY(fixture.build());
    fixture.engine.releaseGstPipeline();
    QVERIFY(fixture.build());
    QCOMPARE(fixture.elements(), expected.elements);
}

void TestPipelines::nullPipelineIsRefused()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    const Fixture fixture(*source);
    QVERIFY(!fixture.engine.initPipeline(nullptr));
    const QByteArray function = QByteArray(expected.engine) + "::initPipeline";
    QCOMPARE(fixture.log.lines(), (QStringList{enterLine("TRACE", function.constData()),
                                               "ERROR " + expected.noPipeline}));
}

void TestPipelines::missingElementEndsTheBuilding_data()
{
    QTest::addColumn<const Source*>("source");
    QTest::addColumn<Description>("expected");
    QTest::addColumn<int>("position");
    for (const Source* source : Source::all()) {
        const Description& expected = descriptionOf(*source);
        for (int i = 0; i < expected.made.size(); ++i) {
            // A missing identity is no error of its own: the link of the stream's source fails.
            if (expected.made.at(i).factory != "identity") {
                QTest::newRow(source->name + (", " + expected.made.at(i).factory))
                    << source << expected << i;
            }
        }
    }
}

void TestPipelines::missingElementEndsTheBuilding()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    QFETCH(int, position);
    const QByteArray factory = expected.made.at(position).factory;
    const MissingFactory missing(factory.constData());
    {
        const Fixture fixture(*source);
        QVERIFY(!fixture.player->startPlayback());
        QCOMPARE(fixture.log.texts("ERROR"),
                 (QStringList{"could not create " + factory + " element", setupFailure}));
        QVERIFY(fixture.log.lines().filter("::initPipeline").filter("Leave").isEmpty());
        QVERIFY(!EngineAccess::initializedOf(fixture.engine));
        QCOMPARE(fixture.elements(), QStringList());
    }
    // A failed build is not undone: nothing owns the elements that were made before.
    QStringList abandoned;
    for (const Made& made : expected.made.mid(0, position)) {
        abandoned += made.type;
    }
    abandoned.sort();
    QCOMPARE(freeAbandonedGstElements(), abandoned);
}

void TestPipelines::chainThatCannotBeLinkedEndsTheBuilding()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    const Fixture fixture(*source);
    const ReplacedFactory replaced("audioconvert", "pipeline"); // has no pads
    QVERIFY(!fixture.player->startPlayback());
    QCOMPARE(fixture.log.texts("ERROR"), (QStringList{expected.linkFailure, setupFailure}));
    // The pipeline releases all elements later. Those before the decoder are linked.
    QCOMPARE(fixture.elements(), expected.elements);
    for (int i = 0; expected.elements.at(i) != expected.decoder; ++i) {
        QVERIFY(!peerOf(fixture.element(expected.elements.at(i)), "src").isEmpty());
    }
}

void TestPipelines::audioPadIsLinkedToTheQueue()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    Fixture fixture(*source);
    QVERIFY(fixture.build());
    GstPad* pad = announcePad(fixture.element(expected.decoder), "first", "audio/x-raw");
    QCOMPARE(peerOf(pad), "Queue.sink");
    QCOMPARE(fixture.log.lines(), padLines(expected, {}, true));
}

void TestPipelines::otherPadIsSkipped()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    Fixture fixture(*source);
    QVERIFY(fixture.build());
    GstPad* pad = announcePad(fixture.element(expected.decoder), "first", "video/x-raw");
    QCOMPARE(peerOf(pad), QString());
    QCOMPARE(peerOf(fixture.element("Queue"), "sink"), QString());
    const QString skipped = expected.skipped.contains(QLatin1String("%1"))
                                ? expected.skipped.arg(fixture.item.file)
                                : expected.skipped;
    QCOMPARE(fixture.log.lines(),
             padLines(expected, {"WARN " + skipped}, expected.leavesAfterSkip));
}

void TestPipelines::linkedPadIsLeftAlone()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    Fixture fixture(*source);
    QVERIFY(fixture.build());
    GstElement* decoder = fixture.element(expected.decoder);
    GstPad* pad = announcePad(decoder, "first", "audio/x-raw");
    fixture.log.clear();
    g_signal_emit_by_name(decoder, "pad-added", pad);
    QCOMPARE(peerOf(pad), "Queue.sink");
    QCOMPARE(fixture.log.lines(), padLines(expected, {"WARN " + alreadyLinked}, false));
}

void TestPipelines::secondAudioPadIsOfferedToo()
{
    QFETCH(const Source*, source);
    QFETCH(Description, expected);
    Fixture fixture(*source);
    QVERIFY(fixture.build());
    GstElement* decoder = fixture.element(expected.decoder);
    GstPad* first = announcePad(decoder, "first", "audio/x-raw");
    fixture.log.clear();
    QCOMPARE(peerOf(announcePad(decoder, "second", "audio/x-raw")), QString());
    QCOMPARE(peerOf(first), "Queue.sink");
    QCOMPARE(fixture.log.lines(), padLines(expected, {}, true));
}

void TestPipelines::loopEndsIfTheSourceCannotLoop()
{
    QFETCH(const Source*, source);
    if (source->loops) {
        return; // its restart has tests of its own
    }
    Fixture fixture(*source);
    fixture.player->loop = true;
    QVERIFY(fixture.build());
    gst_element_post_message(GST_ELEMENT(fixture.bin()), gst_message_new_eos(nullptr));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.outcomes.all, QStringList{"ended T"}, patience);
    QCOMPARE(fixture.log.texts("ERROR"), QStringList{restartRefused});
}

KOVA_TEST(TestPipelines)
#include "tst_pipelines.moc"
