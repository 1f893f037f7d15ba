#include "unit/TestEngine.h"

#include "kit/GstFaults.h"
#include "kit/GstLeaks.h"
#include "kit/Latin1Locale.h"
#include "kit/LogCapture.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <simplePlayer/AudioOutputChain.h>

#include <QtTest/QtTest>

#include <memory>
#include <vector>

/// The four elements that every pipeline ends in, and which decoded pads are linked to them.
class TestOutputChain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void elementsHaveTheirNamesAndFactories();
    void deviceIsSetAsUtf8_data();
    void deviceIsSetAsUtf8();
    void chainIsLinkedInOrder();
    void missingElementIsLoggedAndEndsTheBuilding_data();
    void missingElementIsLoggedAndEndsTheBuilding();
    void linkFailureIsReturned();

    void audioPadIsLinkedToTheQueue();
    void nameOfTheFirstStructureDecides_data();
    void nameOfTheFirstStructureDecides();
    void currentCapsDecide();
    void linkedPadIsLeftAlone();
    void secondAudioPadFindsTheQueueTaken();
};

namespace {

/// A chain with the members that an engine would keep.
struct Chain
{
    GstElement* queue = nullptr;
    GstElement* sink = nullptr;
    AudioOutputChain chain{queue, sink};

    std::vector<GstElement*> elements() const
    {
        return {queue, chain.audioconvert, chain.audioresample, sink};
    }

    /// Frees what no bin took over.
    ~Chain()
    {
        for (GstElement* element : elements()) {
            if (element && g_object_is_floating(element)) {
                gst_object_unref(element);
            }
        }
    }
};

using Element = std::unique_ptr<GstElement, decltype(&gst_object_unref)>;
using Pad = std::unique_ptr<GstPad, decltype(&gst_object_unref)>;

Element makeQueue()
{
    return {GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("queue", "Queue"))),
            gst_object_unref};
}

/// A pad such as a decoder announces.
Pad makeDecodedPad(const char* caps)
{
    GstCaps* padCaps = gst_caps_from_string(caps);
    GstPadTemplate* padTemplate = gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, padCaps);
    GstPad* pad = gst_pad_new_from_template(padTemplate, nullptr);
    gst_object_ref_sink(pad);
    gst_object_unref(padTemplate);
    gst_caps_unref(padCaps);
    return {pad, gst_object_unref};
}

} // namespace

void TestOutputChain::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

void TestOutputChain::elementsHaveTheirNamesAndFactories()
{
    const LogCapture log;
    Chain chain;
    QVERIFY(chain.chain.make(QStringLiteral("device")));
    QStringList made;
    for (GstElement* element : chain.elements()) {
        made.append(
            QString::fromUtf8(gst_plugin_feature_get_name(gst_element_get_factory(element))) +
            QLatin1Char(' ') + QString::fromUtf8(GST_OBJECT_NAME(element)));
    }
    QCOMPARE(made, (QStringList{"queue Queue", "audioconvert AudioConvert",
                                "audioresample AudioResample", "alsasink AudioSink"}));
    QCOMPARE(log.lines(), QStringList());
}

void TestOutputChain::deviceIsSetAsUtf8_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QByteArray>("inSink");
    QTest::newRow("plain") << "hw:0,0" << QByteArray("hw:0,0");
    QTest::newRow("empty stays empty") << "" << QByteArray("");
    QTest::newRow("null is empty too") << QString() << QByteArray("");
    QTest::newRow("umlaut") << QString::fromUtf8("Ger\xc3\xa4t") << QByteArray("Ger\xc3\xa4t");
    QTest::newRow("ideograph") << QString::fromUtf8("\xe8\xaa\x9e") << QByteArray("\xe8\xaa\x9e");
    QTest::newRow("null character")
        << QStringLiteral("hw") + QChar(QChar::Null) + "0" << QByteArray("hw");
}

void TestOutputChain::deviceIsSetAsUtf8()
{
    QFETCH(QString, device);
    QFETCH(QByteArray, inSink);
    const Latin1Locale locale;
    Chain chain;
    QVERIFY(chain.chain.make(device));
    gchar* set = nullptr;
    g_object_get(chain.sink, "device", &set, nullptr);
    QVERIFY(set); // an empty text, not none
    QCOMPARE(QByteArray(set), inSink);
    g_free(set);
}

void TestOutputChain::chainIsLinkedInOrder()
{
    Chain chain;
    QVERIFY(chain.chain.make(QString()));
    const Element bin(gst_pipeline_new(nullptr), gst_object_unref);
    const std::vector<GstElement*> elements = chain.elements();
    for (GstElement* element : elements) {
        gst_bin_add(GST_BIN(bin.get()), element);
    }
    QVERIFY(chain.chain.link());
    for (std::size_t i = 0; i + 1 < elements.size(); ++i) {
        const Pad source(gst_element_get_static_pad(elements[i], "src"), gst_object_unref);
        const Pad peer(gst_pad_get_peer(source.get()), gst_object_unref);
        QVERIFY(peer);
        QCOMPARE(GST_PAD_PARENT(peer.get()), elements[i + 1]);
    }
    chain.queue = chain.sink = chain.chain.audioconvert = chain.chain.audioresample = nullptr;
}

void TestOutputChain::missingElementIsLoggedAndEndsTheBuilding_data()
{
    QTest::addColumn<QByteArray>("factory");
    QTest::addColumn<int>("madeBefore");
    QTest::newRow("queue") << QByteArray("queue") << 0;
    QTest::newRow("audioconvert") << QByteArray("audioconvert") << 1;
    QTest::newRow("audioresample") << QByteArray("audioresample") << 2;
    QTest::newRow("alsasink") << QByteArray("alsasink") << 3;
}

void TestOutputChain::missingElementIsLoggedAndEndsTheBuilding()
{
    QFETCH(QByteArray, factory);
    QFETCH(int, madeBefore);
    const LogCapture log;
    const MissingFactory missing(factory.constData());
    Chain chain;
    QVERIFY(!chain.chain.make(QString()));
    QCOMPARE(log.lines(), QStringList{"ERROR could not create " + factory + " element"});
    const std::vector<GstElement*> elements = chain.elements();
    for (int i = 0; i < 4; ++i) {
        // What was made before is left as it was, neither released nor added anywhere.
        QCOMPARE(elements[static_cast<std::size_t>(i)] != nullptr, i < madeBefore);
    }
}

void TestOutputChain::linkFailureIsReturned()
{
    // An element without pads in the middle cannot be linked to anything.
    const ReplacedFactory replaced("audioconvert", "pipeline");
    Chain chain;
    QVERIFY(chain.chain.make(QString()));
    const Element bin(gst_pipeline_new(nullptr), gst_object_unref);
    gst_bin_add_many(GST_BIN(bin.get()), chain.queue, chain.chain.audioconvert,
                     chain.chain.audioresample, chain.sink, nullptr);
    QVERIFY(!chain.chain.link());
    chain.queue = chain.sink = chain.chain.audioconvert = chain.chain.audioresample = nullptr;
}

void TestOutputChain::audioPadIsLinkedToTheQueue()
{
    const LogCapture log;
    const Element queue = makeQueue();
    const Pad pad = makeDecodedPad("audio/x-raw");
    QCOMPARE(linkDecodedPad(pad.get(), queue.get(), "skipped"), DecodedPad::Offered);
    const Pad peer(gst_pad_get_peer(pad.get()), gst_object_unref);
    QVERIFY(peer);
    QCOMPARE(GST_PAD_PARENT(peer.get()), queue.get());
    QCOMPARE(GST_PAD_NAME(peer.get()), "sink");
    QCOMPARE(log.lines(), QStringList());
}

void TestOutputChain::nameOfTheFirstStructureDecides_data()
{
    QTest::addColumn<QByteArray>("caps");
    QTest::addColumn<bool>("audio");
    QTest::newRow("raw audio") << QByteArray("audio/x-raw, rate=8000") << true;
    QTest::newRow("audio in the middle") << QByteArray("application/x-audio-test") << true;
    QTest::newRow("video") << QByteArray("video/x-raw") << false;
    QTest::newRow("text") << QByteArray("text/x-raw") << false;
    QTest::newRow("upper case") << QByteArray("AUDIO/x-raw") << false;
    QTest::newRow("audio first") << QByteArray("audio/x-raw; video/x-raw") << true;
    QTest::newRow("audio second") << QByteArray("video/x-raw; audio/x-raw") << false;
    QTest::newRow("audio in a field only") << QByteArray("video/x-raw, kind=audio") << false;
    QTest::newRow("any") << QByteArray("ANY") << false;
    QTest::newRow("none") << QByteArray("EMPTY") << false;
}

void TestOutputChain::nameOfTheFirstStructureDecides()
{
    QFETCH(QByteArray, caps);
    QFETCH(bool, audio);
    const LogCapture log;
    const Element queue = makeQueue();
    const Pad pad = makeDecodedPad(caps.constData());
    QCOMPARE(linkDecodedPad(pad.get(), queue.get(), "skipping why ", QStringLiteral("uri")),
             audio ? DecodedPad::Offered : DecodedPad::NotAudio);
    QCOMPARE(bool(gst_pad_is_linked(pad.get())), audio);
    QCOMPARE(log.lines(), audio ? QStringList() : QStringList{"WARN skipping why uri"});
}

void TestOutputChain::currentCapsDecide()
{
    // A decoder's pads could carry anything until it has settled on something.
    const Element queue = makeQueue();
    const Pad pad(GST_PAD(gst_object_ref_sink(gst_pad_new("src", GST_PAD_SRC))), gst_object_unref);
    gst_pad_use_fixed_caps(pad.get());
    gst_pad_set_active(pad.get(), TRUE);
    GstCaps* caps = gst_caps_new_empty_simple("audio/x-raw");
    gst_pad_push_event(pad.get(), gst_event_new_stream_start("stream"));
    gst_pad_push_event(pad.get(), gst_event_new_caps(caps));
    gst_caps_unref(caps);
    QCOMPARE(linkDecodedPad(pad.get(), queue.get(), "skipped"), DecodedPad::Offered);
    QVERIFY(gst_pad_is_linked(pad.get()));
}

void TestOutputChain::linkedPadIsLeftAlone()
{
    const LogCapture log;
    const Element first = makeQueue();
    const Element second = makeQueue();
    const Pad pad = makeDecodedPad("audio/x-raw");
    linkDecodedPad(pad.get(), first.get(), "skipped");
    QCOMPARE(linkDecodedPad(pad.get(), second.get(), "skipped"), DecodedPad::AlreadyLinked);
    QCOMPARE(log.lines(), QStringList{"WARN " + alreadyLinked});
    const Pad peer(gst_pad_get_peer(pad.get()), gst_object_unref);
    QCOMPARE(GST_PAD_PARENT(peer.get()), first.get());
}

void TestOutputChain::secondAudioPadFindsTheQueueTaken()
{
    const LogCapture log;
    const Element queue = makeQueue();
    const Pad first = makeDecodedPad("audio/x-raw");
    const Pad second = makeDecodedPad("audio/x-raw");
    QCOMPARE(linkDecodedPad(first.get(), queue.get(), "skipped"), DecodedPad::Offered);
    QCOMPARE(linkDecodedPad(second.get(), queue.get(), "skipped"), DecodedPad::Offered);
    QVERIFY(gst_pad_is_linked(first.get()));
    QVERIFY(!gst_pad_is_linked(second.get()));
    QCOMPARE(log.lines(), QStringList());
}

KOVA_TEST(TestOutputChain)
#include "tst_outputchain.moc"
