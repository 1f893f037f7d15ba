#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "system/CardClient.h"

#include <QtTest/QtTest>

#include <gst/gst.h>

#include <memory>
#include <vector>

using media::SampleFormat;

/// Playing on the virtual sound card through GStreamer's sink.
class TestVirtualCardPipeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void pipelinePlaysWhole_data();
    void pipelinePlaysWhole();
    void pausedPipelineGoesOn_data();
    void pausedPipelineGoesOn();
    void soughtPipelinePlaysTheRest_data();
    void soughtPipelinePlaysTheRest();
    void stoppedPipelineStartsAgain();
    void tenPipelinesPlayAtOnce();
    void pipelineReportsFailingCard_data();
    void pipelineReportsFailingCard();
};

namespace {

/// A pipeline that plays a WAV file on a card.
class Pipeline
{
public:
    Pipeline(const QString& file, const QString& device)
        : pipeline(gst_parse_launch(
              qPrintable(QStringLiteral("filesrc location=%1 ! wavparse ! audioconvert ! "
                                        "audioresample ! alsasink device=%2")
                             .arg(file, device)),
              nullptr))
    {
    }
    ~Pipeline()
    {
        setState(GST_STATE_NULL);
        gst_object_unref(pipeline);
    }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    void setState(GstState state) { gst_element_set_state(pipeline, state); }

    bool waitForState(GstState state)
    {
        GstState reached = GST_STATE_VOID_PENDING;
        return gst_element_get_state(pipeline, &reached, nullptr, patience * GST_MSECOND) ==
                   GST_STATE_CHANGE_SUCCESS &&
               reached == state;
    }

    bool seek(qint64 ns)
    {
        return gst_element_seek_simple(
                   pipeline, GST_FORMAT_TIME,
                   static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                   ns) != FALSE;
    }

    /// Waits for the end. @return "ended", the text of an error, or "timeout"
    QString finish()
    {
        GstBus* bus = gst_element_get_bus(pipeline);
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, patience * GST_MSECOND,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
        gst_object_unref(bus);
        if (!message) {
            return QStringLiteral("timeout");
        }
        QString text = QStringLiteral("ended");
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            GError* error = nullptr;
            gst_message_parse_error(message, &error, nullptr);
            text = QString::fromUtf8(error->message);
            g_error_free(error);
        }
        gst_message_unref(message);
        return text;
    }

private:
    GstElement* pipeline;
};

} // namespace

void TestVirtualCardPipeline::pipelinePlaysWhole_data()
{
    QTest::addColumn<SampleFormat>("format");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("frames");
    QTest::addColumn<double>("speed");

    QTest::newRow("S16, 20 ms, real time") << SampleFormat::S16 << 48000 << 2 << 960 << 1.0;
    QTest::newRow("S16, 139 ms, real time") << SampleFormat::S16 << 44100 << 2 << 6130 << 1.0;
    // At rates where the sound's blocks of 4096 bytes last a fraction of a nanosecond more than
    // their timestamps say, the sink leaves out the first frame. These are not such rates.
    QTest::newRow("S16, 0.7 s, mono, real time") << SampleFormat::S16 << 32000 << 1 << 22400 << 1.0;
    QTest::newRow("S24, six channels") << SampleFormat::S24 << 48000 << 6 << 96000 << 20.0;
    QTest::newRow("S32") << SampleFormat::S32 << 96000 << 2 << 96000 << 20.0;
    QTest::newRow("F32, mono") << SampleFormat::F32 << 44100 << 1 << 44100 << 20.0;
    QTest::newRow("S16, short, fast") << SampleFormat::S16 << 48000 << 2 << 960 << 20.0;
    QTest::newRow("S16, 10 s, very fast") << SampleFormat::S16 << 48000 << 2 << 480000 << 100.0;
    QTest::newRow("F32, six channels, very fast")
        << SampleFormat::F32 << 48000 << 6 << 96000 << 100.0;
}

void TestVirtualCardPipeline::pipelinePlaysWhole()
{
    QFETCH(SampleFormat, format);
    QFETCH(int, rate);
    QFETCH(int, channels);
    QFETCH(int, frames);
    QFETCH(double, speed);
    const media::Pcm sound = media::noise(format, rate, channels, frames);
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(speed));
    Pipeline pipeline(media::writeWav("sound.wav", sound), card.device());
    pipeline.setState(GST_STATE_PLAYING);
    QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
    pipeline.setState(GST_STATE_NULL);

    QCOMPARE(card.format(), nameOf(format));
    QCOMPARE(card.rate(), rate);
    QCOMPARE(card.channels(), channels);
    QCOMPARE(media::difference(card.samples(), sound.samples, sound.frameSize()), QString());
    QVERIFY(!card.has("xrun"));
    QCOMPARE(card.eventNames().last(), QStringLiteral("close"));
}

void TestVirtualCardPipeline::pausedPipelineGoesOn_data()
{
    QTest::addColumn<bool>("canPause");
    QTest::newRow("card that can pause") << true;
    QTest::newRow("card that cannot") << false;
}

void TestVirtualCardPipeline::pausedPipelineGoesOn()
{
    QFETCH(bool, canPause);
    const media::Pcm sound = media::noise(48000);
    VirtualCard::Settings settings;
    settings.canPause = canPause;
    const VirtualCard card("card", settings);
    Pipeline pipeline(media::writeWav("sound.wav", sound), card.device());
    pipeline.setState(GST_STATE_PLAYING);
    QVERIFY(card.waitForFrames(1));
    pipeline.setState(GST_STATE_PAUSED);
    QVERIFY(pipeline.waitForState(GST_STATE_PAUSED));
    const qint64 atPause = card.frames();
    pipeline.setState(GST_STATE_PLAYING);
    QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
    QVERIFY(card.frames() > atPause);
    if (canPause) {
        QVERIFY(media::withoutSilence(card.samples(), sound.frameSize()) == sound.samples);
        QVERIFY(card.has("resume"));
    } else {
        // The sink drops what is in the card then.
        QVERIFY(sound.samples.startsWith(card.samples().left(static_cast<int>(4 * atPause))));
        QVERIFY(!card.has("pause"));
    }
}

void TestVirtualCardPipeline::soughtPipelinePlaysTheRest_data()
{
    pausedPipelineGoesOn_data();
}

void TestVirtualCardPipeline::soughtPipelinePlaysTheRest()
{
    QFETCH(bool, canPause);
    const media::Pcm sound = media::noise(48000);
    VirtualCard::Settings settings;
    settings.canPause = canPause;
    const VirtualCard card("card", settings);
    Pipeline pipeline(media::writeWav("sound.wav", sound), card.device());
    pipeline.setState(GST_STATE_PAUSED);
    QVERIFY(pipeline.waitForState(GST_STATE_PAUSED));
    QVERIFY(pipeline.seek(500 * GST_MSECOND));
    QVERIFY(pipeline.waitForState(GST_STATE_PAUSED));
    pipeline.setState(GST_STATE_PLAYING);
    QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
    QCOMPARE(media::difference(card.samples(), sound.samples.mid(4 * 24000), sound.frameSize()),
             QString());

    // And once more from the start, after the end.
    const int before = card.samples().size();
    QVERIFY(pipeline.seek(0));
    QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
    const QByteArray again = media::withoutTrailingSilence(card.samples().mid(before), 4);
    // How much of the beginning the sink leaves out is its own affair: it may take the first sound,
    // whose time is that of the frames still in the card, for late.
    QVERIFY(again.endsWith(sound.samples.mid(4 * 24000)));
}

void TestVirtualCardPipeline::stoppedPipelineStartsAgain()
{
    const media::Pcm sound = media::noise(24000);
    const VirtualCard card("card");
    Pipeline pipeline(media::writeWav("sound.wav", sound), card.device());
    for (int i = 0; i < 3; ++i) {
        const int before = card.samples().size();
        pipeline.setState(GST_STATE_PLAYING);
        QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
        pipeline.setState(GST_STATE_NULL);
        QVERIFY(media::withoutTrailingSilence(card.samples().mid(before), 4) == sound.samples);
    }
    QCOMPARE(card.eventNames().count("close"), 3);
}

void TestVirtualCardPipeline::tenPipelinesPlayAtOnce()
{
    const media::Pcm sound = media::noise(48000);
    const QString file = media::writeWav("sound.wav", sound);
    std::vector<std::unique_ptr<VirtualCard>> cards;
    std::vector<std::unique_ptr<Pipeline>> pipelines;
    for (int i = 0; i < 10; ++i) {
        cards.push_back(std::make_unique<VirtualCard>(QStringLiteral("card%1").arg(i)));
        pipelines.push_back(std::make_unique<Pipeline>(file, cards.back()->device()));
        pipelines.back()->setState(GST_STATE_PLAYING);
    }
    for (std::size_t i = 0; i < 10; ++i) {
        QCOMPARE(pipelines[i]->finish(), QStringLiteral("ended"));
        pipelines[i]->setState(GST_STATE_NULL);
        QCOMPARE(media::difference(cards[i]->samples(), sound.samples, sound.frameSize()),
                 QString());
    }
}

void TestVirtualCardPipeline::pipelineReportsFailingCard_data()
{
    QTest::addColumn<QString>("refuse");
    QTest::addColumn<qint64>("vanishAfter");
    QTest::addColumn<QString>("error");
    QTest::newRow("open") << "open" << qint64(-1)
                          << "Could not open audio device for playback. Device is being used by "
                             "another application.";
    QTest::newRow("format") << "format" << qint64(-1)
                            << "Could not get/set settings from/on resource.";
    QTest::newRow("rate") << "rate" << qint64(-1) << "Could not get/set settings from/on resource.";
    QTest::newRow("vanishes") << "" << qint64(10000)
                              << "Error outputting to audio device. The device has been "
                                 "disconnected.";
}

void TestVirtualCardPipeline::pipelineReportsFailingCard()
{
    QFETCH(QString, refuse);
    QFETCH(qint64, vanishAfter);
    QFETCH(QString, error);
    VirtualCard::Settings settings;
    settings.refuse = refuse;
    settings.vanishAfter = vanishAfter;
    const VirtualCard card("card", settings);
    Pipeline pipeline(media::writeWav("sound.wav", media::noise(48000)), card.device());
    pipeline.setState(GST_STATE_PLAYING);
    QCOMPARE(pipeline.finish(), error);
    if (refuse == "format" || refuse == "rate") {
        overlookLeakedGstObject("GstCaps"); // the sink never frees those that it could not set
    }
}

KOVA_TEST(TestVirtualCardPipeline)
#include "tst_virtualcardpipeline.moc"
