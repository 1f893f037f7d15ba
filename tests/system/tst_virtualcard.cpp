#include "kit/GstLeaks.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <alsa/asoundlib.h>
#include <gst/gst.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

using media::SampleFormat;

/// The virtual sound card itself, through ALSA and through GStreamer's sink.
class TestVirtualCard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void samplesArriveUnchanged_data();
    void samplesArriveUnchanged();
    void paddedSamplesAreRecordedPacked();
    void separateChannelsAreRecordedInterleaved();
    void mappedWritesAreRecorded();
    void playingTakesTheTimeOfTheSound_data();
    void playingTakesTheTimeOfTheSound();
    void drainPlaysEverything();
    void dropRecordsOnlyWhatWasPlayed();
    void pauseHoldsTheCard();
    void cardWithoutPauseSaysSo();
    void underrunIsReportedAndRecovered();
    void starvedCardWaits();
    void drainOfANonBlockingClientReturnsAtOnce();
    void drainOfAStalledCardFails();
    void channelMapIsThatOfWavFiles();

    void openedAgainAppends();
    void otherParametersGoToAnotherFile();
    void recordingHasValidHeader_data();
    void recordingHasValidHeader();

    void refusingCardCannotBeOpened();
    void refusingCardCannotBeConfigured_data();
    void refusingCardCannotBeConfigured();
    void vanishedCardIsGone();
    void stalledCardStandsStill();
    void secondClientFindsTheCardBusy();
    void captureIsNotOffered();
    void wrongConfigurationIsRefused_data();
    void wrongConfigurationIsRefused();
    void cardWithoutFilesPlays();
    void recordThatCannotBeMadeFailsTheSetUp();
    void filesAreNumberedBeforeTheSuffix_data();
    void filesAreNumberedBeforeTheSuffix();
    void fullDiskIsToldOnce();

    void cardsComeAndGo();
    void generatedConfigurationWorks();
    void tenCardsPlayAtOnce();

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

/// How long tests wait for what must happen, in milliseconds.
static constexpr int patience = 120000;

// ---- A client of ALSA -------------------------------------------------------------------------

namespace {

struct ClosePcm
{
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
using Pcm = std::unique_ptr<snd_pcm_t, ClosePcm>;

/// How a client sets a card up.
struct Setup
{
    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
    unsigned channels = 2;
    unsigned rate = 48000;
    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
    snd_pcm_uframes_t buffer = 9600;
    snd_pcm_uframes_t period = 480;
};

} // namespace

static Pcm openPcm(const QString& device, int mode = 0)
{
    snd_pcm_t* pcm = nullptr;
    const int error = snd_pcm_open(&pcm, qPrintable(device), SND_PCM_STREAM_PLAYBACK, mode);
    if (error < 0) {
        errno = -error;
    }
    return Pcm(pcm);
}

/// ALSA starts a card at the first frame that is written, unless it is told otherwise.
static int startWhenFull(const Pcm& pcm)
{
    snd_pcm_uframes_t buffer = 0;
    snd_pcm_uframes_t period = 0;
    snd_pcm_get_params(pcm.get(), &buffer, &period);
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_malloc(&params);
    const std::unique_ptr<snd_pcm_sw_params_t, decltype(&snd_pcm_sw_params_free)> owner(
        params, snd_pcm_sw_params_free);
    for (const int error : {snd_pcm_sw_params_current(pcm.get(), params),
                            snd_pcm_sw_params_set_start_threshold(pcm.get(), params, buffer),
                            snd_pcm_sw_params_set_avail_min(pcm.get(), params, period)}) {
        if (error < 0) {
            return error;
        }
    }
    return snd_pcm_sw_params(pcm.get(), params);
}

/// @return 0 or ALSA's error
static int configure(const Pcm& pcm, const Setup& setup)
{
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_malloc(&params);
    const std::unique_ptr<snd_pcm_hw_params_t, decltype(&snd_pcm_hw_params_free)> owner(
        params, snd_pcm_hw_params_free);
    snd_pcm_uframes_t buffer = setup.buffer;
    snd_pcm_uframes_t period = setup.period;
    for (const int error : {
             snd_pcm_hw_params_any(pcm.get(), params),
             snd_pcm_hw_params_set_access(pcm.get(), params, setup.access),
             snd_pcm_hw_params_set_format(pcm.get(), params, setup.format),
             snd_pcm_hw_params_set_channels(pcm.get(), params, setup.channels),
             snd_pcm_hw_params_set_rate(pcm.get(), params, setup.rate, 0),
             snd_pcm_hw_params_set_period_size_near(pcm.get(), params, &period, nullptr),
             snd_pcm_hw_params_set_buffer_size_near(pcm.get(), params, &buffer),
         }) {
        if (error < 0) {
            return error;
        }
    }
    const int error = snd_pcm_hw_params(pcm.get(), params);
    return error < 0 ? error : startWhenFull(pcm);
}

static snd_pcm_format_t alsaFormat(SampleFormat format)
{
    switch (format) {
    case SampleFormat::S16:
        return SND_PCM_FORMAT_S16_LE;
    case SampleFormat::S24:
        return SND_PCM_FORMAT_S24_3LE;
    case SampleFormat::S32:
        return SND_PCM_FORMAT_S32_LE;
    case SampleFormat::F32:
        break;
    }
    return SND_PCM_FORMAT_FLOAT_LE;
}

static Setup setupFor(const media::Pcm& sound)
{
    Setup setup;
    setup.format = alsaFormat(sound.format);
    setup.channels = static_cast<unsigned>(sound.channels);
    setup.rate = static_cast<unsigned>(sound.rate);
    return setup;
}

/// Writes all frames, waiting for room. @return whether all were taken
static bool writeAll(const Pcm& pcm, const QByteArray& samples)
{
    const snd_pcm_sframes_t frames = snd_pcm_bytes_to_frames(pcm.get(), samples.size());
    return snd_pcm_writei(pcm.get(), samples.constData(), static_cast<snd_pcm_uframes_t>(frames)) ==
           frames;
}

/// Opens the card, plays a sound to its end and closes the card. @return whether all went well
static bool play(const QString& device, const media::Pcm& sound)
{
    const Pcm pcm = openPcm(device);
    return pcm && configure(pcm, setupFor(sound)) == 0 && writeAll(pcm, sound.samples) &&
           snd_pcm_drain(pcm.get()) == 0;
}

static media::Pcm noise(int frames, quint32 seed = 1)
{
    return media::noise(SampleFormat::S16, 48000, 2, frames, seed);
}

static VirtualCard::Settings atSpeed(double speed)
{
    VirtualCard::Settings settings;
    settings.speed = speed;
    return settings;
}

static VirtualCard::Event find(const VirtualCard& card, const QString& name)
{
    for (const VirtualCard::Event& event : card.events()) {
        if (event.name == name) {
            return event;
        }
    }
    return {};
}

// ---- Playing ----------------------------------------------------------------------------------

void TestVirtualCard::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

static QString nameOf(SampleFormat format)
{
    switch (format) {
    case SampleFormat::S16:
        return QStringLiteral("S16");
    case SampleFormat::S24:
        return QStringLiteral("S24");
    case SampleFormat::S32:
        return QStringLiteral("S32");
    case SampleFormat::F32:
        break;
    }
    return QStringLiteral("F32");
}

void TestVirtualCard::samplesArriveUnchanged_data()
{
    QTest::addColumn<SampleFormat>("format");
    QTest::addColumn<int>("channels");
    QTest::addColumn<double>("speed");

    for (const double speed : {1.0, 20.0}) {
        for (const SampleFormat format :
             {SampleFormat::S16, SampleFormat::S24, SampleFormat::S32, SampleFormat::F32}) {
            for (const int channels : {1, 2, 6}) {
                QTest::addRow("%s, %d channels, speed %g", qPrintable(nameOf(format)), channels,
                              speed)
                    << format << channels << speed;
            }
        }
    }
}

void TestVirtualCard::samplesArriveUnchanged()
{
    QFETCH(SampleFormat, format);
    QFETCH(int, channels);
    QFETCH(double, speed);
    // More than the buffer, so that it is filled again and again, and no whole number of periods.
    const int frames = speed > 1.0 ? 30011 : 1511;
    const media::Pcm sound = media::noise(format, 48000, channels, frames);
    const VirtualCard card("card", atSpeed(speed));
    const Pcm pcm = openPcm(card.device());
    QVERIFY(pcm);
    Setup setup = setupFor(sound);
    setup.buffer = 960;
    setup.period = 240;
    QCOMPARE(configure(pcm, setup), 0);
    QVERIFY(writeAll(pcm, sound.samples));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);

    QCOMPARE(card.format(), nameOf(format));
    QCOMPARE(card.channels(), channels);
    QCOMPARE(card.rate(), 48000);
    QCOMPARE(card.frames(), qint64(frames));
    QVERIFY(card.samples() == sound.samples);
}

void TestVirtualCard::paddedSamplesAreRecordedPacked()
{
    const media::Pcm sound = media::noise(SampleFormat::S24, 44100, 2, 2000);
    QByteArray padded;
    for (int i = 0; i < sound.samples.size(); i += 3) {
        padded += sound.samples.mid(i, 3) + '\x55';
    }
    const VirtualCard card("card");
    const Pcm pcm = openPcm(card.device());
    Setup setup;
    setup.format = SND_PCM_FORMAT_S24_LE;
    setup.rate = 44100;
    QCOMPARE(configure(pcm, setup), 0);
    QVERIFY(writeAll(pcm, padded));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QCOMPARE(card.format(), QStringLiteral("S24"));
    QVERIFY(card.samples() == sound.samples);
}

void TestVirtualCard::separateChannelsAreRecordedInterleaved()
{
    const media::Pcm sound = noise(20000);
    QByteArray left;
    QByteArray right;
    for (int i = 0; i < sound.samples.size(); i += 4) {
        left += sound.samples.mid(i, 2);
        right += sound.samples.mid(i + 2, 2);
    }
    const VirtualCard card("card");
    const Pcm pcm = openPcm(card.device());
    Setup setup;
    setup.access = SND_PCM_ACCESS_RW_NONINTERLEAVED;
    QCOMPARE(configure(pcm, setup), 0);
    std::array<void*, 2> buffers = {left.data(), right.data()};
    QCOMPARE(snd_pcm_writen(pcm.get(), buffers.data(), 20000), snd_pcm_sframes_t(20000));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QVERIFY(card.samples() == sound.samples);
}

void TestVirtualCard::mappedWritesAreRecorded()
{
    const media::Pcm sound = noise(20000);
    const VirtualCard card("card");
    const Pcm pcm = openPcm(card.device());
    Setup setup;
    setup.access = SND_PCM_ACCESS_MMAP_INTERLEAVED;
    QCOMPARE(configure(pcm, setup), 0);
    QCOMPARE(snd_pcm_mmap_writei(pcm.get(), sound.samples.constData(), 20000),
             snd_pcm_sframes_t(20000));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QVERIFY(card.samples() == sound.samples);
}

void TestVirtualCard::playingTakesTheTimeOfTheSound_data()
{
    QTest::addColumn<double>("speed");
    QTest::newRow("real time") << 1.0;
    QTest::newRow("fast") << 20.0;
    QTest::newRow("slow") << 0.5;
}

void TestVirtualCard::playingTakesTheTimeOfTheSound()
{
    QFETCH(double, speed);
    const int frames = 4801;
    const VirtualCard card("card", atSpeed(speed));
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, noise(frames).samples)); // all of it fits into the buffer
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(snd_pcm_start(pcm.get()), 0);
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    const qint64 waited = clock.nsecsElapsed();

    // Only the client depends on the machine; the card keeps its time by itself.
    const double exact = 1e9 * frames / 48000 / speed;
    const qint64 took = find(card, "drained").ns - find(card, "first-frame").ns;
    QVERIFY(static_cast<double>(took) >= exact);
    QVERIFY2(static_cast<double>(took) < exact + 1000, qPrintable(QString::number(took)));
    QVERIFY(static_cast<double>(waited) >= exact);
}

void TestVirtualCard::drainPlaysEverything()
{
    // Fewer frames than start the card by themselves.
    const media::Pcm sound = noise(7);
    const VirtualCard card("card");
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples));
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_PREPARED);
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_SETUP);
    QVERIFY(card.samples() == sound.samples);
    QCOMPARE(card.eventNames(),
             QStringList({"open", "configure", "drain", "first-frame", "drained"}));
    QCOMPARE(find(card, "configure").details, QStringLiteral("S16_LE 48000 2 9600 480"));
}

void TestVirtualCard::dropRecordsOnlyWhatWasPlayed()
{
    // So slow that the buffer lasts for minutes.
    const media::Pcm sound = noise(9600);
    const VirtualCard card("card", atSpeed(0.0005));
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples)); // a full buffer starts
    QTRY_VERIFY_WITH_TIMEOUT(snd_pcm_avail(pcm.get()) >= 1, patience);
    QCOMPARE(snd_pcm_drop(pcm.get()), 0);
    QVERIFY(card.frames() > 0);
    QVERIFY(card.frames() < 9600);
    QVERIFY(sound.samples.startsWith(card.samples()));
    QCOMPARE(find(card, "stop").details.toLongLong(), 9600 - card.frames());
}

void TestVirtualCard::pauseHoldsTheCard()
{
    const media::Pcm sound = noise(9600);
    const VirtualCard card("card", atSpeed(1.0));
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples));
    QTRY_VERIFY_WITH_TIMEOUT(snd_pcm_avail(pcm.get()) > 0, patience);
    QCOMPARE(snd_pcm_pause(pcm.get(), 1), 0);
    snd_pcm_sframes_t before = 0;
    QCOMPARE(snd_pcm_delay(pcm.get(), &before), 0);
    QVERIFY(before > 0);
    QTest::qWait(50);
    snd_pcm_sframes_t after = 0;
    QCOMPARE(snd_pcm_delay(pcm.get(), &after), 0);
    QCOMPARE(after, before);
    QCOMPARE(snd_pcm_pause(pcm.get(), 0), 0);
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QVERIFY(card.samples() == sound.samples);
    const qint64 held = find(card, "resume").ns - find(card, "pause").ns;
    const qint64 took = find(card, "drained").ns - find(card, "first-frame").ns;
    QVERIFY(took >= 200000000 + held);
}

void TestVirtualCard::cardWithoutPauseSaysSo()
{
    for (const bool canPause : {true, false}) {
        VirtualCard::Settings settings;
        settings.canPause = canPause;
        const VirtualCard card("card", settings);
        const Pcm pcm = openPcm(card.device());
        snd_pcm_hw_params_t* params = nullptr;
        snd_pcm_hw_params_malloc(&params);
        snd_pcm_hw_params_any(pcm.get(), params);
        QCOMPARE(snd_pcm_hw_params_can_pause(params) != 0, canPause);
        snd_pcm_hw_params_free(params);
    }
}

void TestVirtualCard::underrunIsReportedAndRecovered()
{
    const media::Pcm sound = noise(2000);
    VirtualCard::Settings settings;
    settings.underruns = true;
    const VirtualCard card("card", settings);
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples.left(4 * 1500)));
    QCOMPARE(snd_pcm_start(pcm.get()), 0);
    QTRY_COMPARE_WITH_TIMEOUT(snd_pcm_avail_update(pcm.get()), -EPIPE, patience);
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_XRUN);
    QCOMPARE(snd_pcm_writei(pcm.get(), sound.samples.constData(), 1), snd_pcm_sframes_t(-EPIPE));
    QCOMPARE(snd_pcm_wait(pcm.get(), patience), -EPIPE);
    QCOMPARE(find(card, "xrun").details, QStringLiteral("1500"));

    QCOMPARE(snd_pcm_recover(pcm.get(), -EPIPE, 1), 0);
    QVERIFY(writeAll(pcm, sound.samples.mid(4 * 1500)));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QVERIFY(card.samples() == sound.samples);
}

void TestVirtualCard::starvedCardWaits()
{
    const media::Pcm sound = noise(2000);
    const VirtualCard card("card");
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples.left(4 * 1500)));
    QCOMPARE(snd_pcm_start(pcm.get()), 0);
    QTRY_COMPARE_WITH_TIMEOUT(snd_pcm_avail_update(pcm.get()), 9600, patience);
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_RUNNING);
    snd_pcm_sframes_t delay = -1;
    QCOMPARE(snd_pcm_delay(pcm.get(), &delay), 0);
    QCOMPARE(delay, snd_pcm_sframes_t(0));
    QVERIFY(writeAll(pcm, sound.samples.mid(4 * 1500)));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    QVERIFY(card.samples() == sound.samples);
    QVERIFY(!card.has("xrun"));
}

void TestVirtualCard::drainOfANonBlockingClientReturnsAtOnce()
{
    const media::Pcm sound = noise(9600);
    const VirtualCard card("card", atSpeed(0.0005));
    const Pcm pcm = openPcm(card.device(), SND_PCM_NONBLOCK);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples)); // a full buffer starts
    QCOMPARE(snd_pcm_drain(pcm.get()), -EAGAIN);
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_DRAINING);
    pollfd descriptor{};
    unsigned short events = POLLOUT;
    QCOMPARE(snd_pcm_poll_descriptors(pcm.get(), &descriptor, 0), 0);
    QCOMPARE(snd_pcm_poll_descriptors(pcm.get(), &descriptor, 1), 1);
    QCOMPARE(snd_pcm_poll_descriptors_revents(pcm.get(), &descriptor, 1, &events), 0);
    QCOMPARE(events, static_cast<unsigned short>(0));
    QCOMPARE(snd_pcm_drop(pcm.get()), 0);
}

void TestVirtualCard::drainOfAStalledCardFails()
{
    VirtualCard::Settings settings;
    settings.stallAfter = 500;
    const VirtualCard card("card", settings);
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, noise(1000).samples));
    QCOMPARE(snd_pcm_drain(pcm.get()), -EIO);
    QCOMPARE(card.frames(), qint64(500));
}

void TestVirtualCard::channelMapIsThatOfWavFiles()
{
    const VirtualCard card("card");
    const Pcm pcm = openPcm(card.device());
    QVERIFY(!snd_pcm_get_chmap(pcm.get())); // there are no channels yet
    for (unsigned channels = 1; channels <= 8; ++channels) {
        Setup setup;
        setup.channels = channels;
        QCOMPARE(configure(pcm, setup), 0);
        snd_pcm_chmap_t* map = snd_pcm_get_chmap(pcm.get());
        QVERIFY(map);
        QCOMPARE(map->channels, channels);
        QCOMPARE(map->pos[0], unsigned(channels == 1 ? SND_CHMAP_MONO : SND_CHMAP_FL));
        if (channels >= 6) {
            QCOMPARE(map->pos[3], unsigned(SND_CHMAP_LFE));
        }
        free(map);
    }
}

// ---- Recording --------------------------------------------------------------------------------

void TestVirtualCard::openedAgainAppends()
{
    const VirtualCard card("card");
    const media::Pcm first = noise(1000, 1);
    const media::Pcm second = noise(1001, 2);
    QVERIFY(play(card.device(), first));
    QVERIFY(play(card.device(), second));
    QVERIFY(card.samples() == first.samples + second.samples);
    QCOMPARE(card.recordPaths(), QStringList(card.recordPath()));
}

void TestVirtualCard::otherParametersGoToAnotherFile()
{
    const VirtualCard card("card");
    const media::Pcm first = noise(1000, 1);
    const media::Pcm second = media::noise(SampleFormat::S16, 44100, 2, 1000);
    const media::Pcm third = media::noise(SampleFormat::F32, 48000, 1, 1000);
    for (const media::Pcm& sound : {first, second, third, second, first}) {
        QVERIFY(play(card.device(), sound));
    }
    QCOMPARE(card.recordPaths().size(), 3);
    QVERIFY(card.samples(0) == first.samples + first.samples);
    QVERIFY(card.samples(1) == second.samples + second.samples);
    QVERIFY(card.samples(2) == third.samples);
    QCOMPARE(card.rate(1), 44100);
    QCOMPARE(card.channels(2), 1);
}

void TestVirtualCard::recordingHasValidHeader_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("channels");
    QTest::newRow("odd number of bytes") << int(SND_PCM_FORMAT_U8) << 1;
    QTest::newRow("odd number of bytes, 24 bit") << int(SND_PCM_FORMAT_S24_3LE) << 1;
    QTest::newRow("plain") << int(SND_PCM_FORMAT_S16_LE) << 2;
    QTest::newRow("float") << int(SND_PCM_FORMAT_FLOAT_LE) << 2;
    QTest::newRow("double") << int(SND_PCM_FORMAT_FLOAT64_LE) << 8;
    QTest::newRow("many channels") << int(SND_PCM_FORMAT_S32_LE) << 8;
}

void TestVirtualCard::recordingHasValidHeader()
{
    QFETCH(int, format);
    QFETCH(int, channels);
    const VirtualCard card("card");
    Setup setup;
    setup.format = static_cast<snd_pcm_format_t>(format);
    setup.channels = static_cast<unsigned>(channels);
    // The file is whole after each of these. With an odd frame size its data are odd, even,
    // odd and odd in turn.
    for (const int frames : {1001, 1001, 1, 998}) {
        const Pcm pcm = openPcm(card.device());
        QCOMPARE(configure(pcm, setup), 0);
        const int frameSize = static_cast<int>(snd_pcm_frames_to_bytes(pcm.get(), 1));
        QVERIFY(writeAll(pcm, QByteArray(frameSize * frames, '\x11')));
        QCOMPARE(snd_pcm_drain(pcm.get()), 0);
    }
    QCOMPARE(card.frames(), qint64(1001 + 1001 + 1 + 998));
    const QByteArray wav = media::readFile(card.recordPath());
    const int data = wav.indexOf("data");
    const auto sizeAt = [&wav](int offset) {
        return qFromLittleEndian<quint32>(wav.constData() + offset);
    };
    QCOMPARE(sizeAt(4), quint32(wav.size() - 8));
    QCOMPARE(sizeAt(data + 4), quint32(card.samples().size()));
    QCOMPARE(wav.size() % 2, 0);
    QVERIFY(!card.samples().contains('\0'));
}

// ---- Failing ----------------------------------------------------------------------------------

static VirtualCard::Settings refusing(const QString& what)
{
    VirtualCard::Settings settings;
    settings.refuse = what;
    return settings;
}

void TestVirtualCard::refusingCardCannotBeOpened()
{
    const VirtualCard card("card", refusing("open"));
    QVERIFY(!openPcm(card.device()));
    QCOMPARE(errno, EBUSY);
    QCOMPARE(card.eventNames(), QStringList("refused"));
}

void TestVirtualCard::refusingCardCannotBeConfigured_data()
{
    QTest::addColumn<QString>("what");
    QTest::newRow("format") << "format";
    QTest::newRow("rate") << "rate";
}

void TestVirtualCard::refusingCardCannotBeConfigured()
{
    QFETCH(QString, what);
    const VirtualCard card("card", refusing(what));
    const Pcm pcm = openPcm(card.device());
    QVERIFY(pcm);
    for (const SampleFormat format :
         {SampleFormat::S16, SampleFormat::S24, SampleFormat::S32, SampleFormat::F32}) {
        for (const int rate : {8000, 44100, 48000, 192000}) {
            QCOMPARE(configure(pcm, setupFor(media::noise(format, rate, 2, 1))), -EINVAL);
        }
    }
    QCOMPARE(find(card, "refused").details, what);
}

void TestVirtualCard::vanishedCardIsGone()
{
    VirtualCard::Settings settings;
    settings.vanishAfter = 5000;
    const media::Pcm sound = noise(20000);
    const VirtualCard card("card", settings);
    {
        const Pcm pcm = openPcm(card.device());
        QCOMPARE(configure(pcm, Setup()), 0);
        const snd_pcm_sframes_t written =
            snd_pcm_writei(pcm.get(), sound.samples.constData(), 20000);
        QVERIFY(written >= 9600);
        QVERIFY(written < 20000);
        QCOMPARE(snd_pcm_writei(pcm.get(), sound.samples.constData(), 1),
                 snd_pcm_sframes_t(-ENODEV));
        QCOMPARE(snd_pcm_wait(pcm.get(), patience), -ENODEV);
        snd_pcm_sframes_t delay = 0;
        QCOMPARE(snd_pcm_delay(pcm.get(), &delay), -ENODEV);
        QCOMPARE(snd_pcm_prepare(pcm.get()), -ENODEV);
        QCOMPARE(configure(pcm, Setup()), -ENODEV);
        QCOMPARE(card.eventNames().count("configure"), 1);
        QVERIFY(snd_pcm_drain(pcm.get()) < 0);

        pollfd descriptor{};
        unsigned short events = 0;
        QCOMPARE(snd_pcm_poll_descriptors(pcm.get(), &descriptor, 1), 1);
        QCOMPARE(::poll(&descriptor, 1, patience), 1);
        QCOMPARE(snd_pcm_poll_descriptors_revents(pcm.get(), &descriptor, 1, &events), 0);
        QVERIFY(events & POLLERR);
    }
    QVERIFY(card.samples() == sound.samples.left(4 * 5000));
    QVERIFY(card.has("vanished"));
    QVERIFY(!openPcm(card.device()));
    QCOMPARE(errno, ENODEV);
}

void TestVirtualCard::stalledCardStandsStill()
{
    VirtualCard::Settings settings;
    settings.stallAfter = 5000;
    const media::Pcm sound = noise(9600);
    const VirtualCard card("card", settings);
    const Pcm pcm = openPcm(card.device(), SND_PCM_NONBLOCK);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples)); // a full buffer starts
    QTRY_COMPARE_WITH_TIMEOUT(snd_pcm_avail_update(pcm.get()), 5000, patience);
    QVERIFY(writeAll(pcm, sound.samples.left(4 * 5000)));
    QCOMPARE(snd_pcm_writei(pcm.get(), sound.samples.constData(), 1), snd_pcm_sframes_t(-EAGAIN));
    QCOMPARE(snd_pcm_wait(pcm.get(), 20), 0);
    snd_pcm_sframes_t delay = 0;
    QCOMPARE(snd_pcm_delay(pcm.get(), &delay), 0);
    QCOMPARE(delay, snd_pcm_sframes_t(9600));
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_RUNNING);
    QVERIFY(card.samples() == sound.samples.left(4 * 5000));
}

void TestVirtualCard::secondClientFindsTheCardBusy()
{
    const VirtualCard card("card");
    {
        const Pcm first = openPcm(card.device());
        QVERIFY(first);
        QVERIFY(!openPcm(card.device()));
        QCOMPARE(errno, EBUSY);
    }
    QVERIFY(openPcm(card.device()));
}

void TestVirtualCard::captureIsNotOffered()
{
    const VirtualCard card("card");
    snd_pcm_t* pcm = nullptr;
    QCOMPARE(snd_pcm_open(&pcm, qPrintable(card.device()), SND_PCM_STREAM_CAPTURE, 0), -ENOENT);
}

void TestVirtualCard::wrongConfigurationIsRefused_data()
{
    QTest::addColumn<QString>("line");
    for (const char* line :
         {"colour blue", "speed 0", "speed -1", "speed fast", "speed nan", "speed inf",
          "pause maybe", "refuse all", "refuse 1", "starve never", "vanish_after -1",
          "vanish_after 1.5", "stall_after soon", "record 1", "record \"\"", "events { a b }",
          "starve 1", "record \"/nonexistent/folder/x.wav\"", "events \"/nonexistent/folder/x\""}) {
        QTest::newRow(line) << QString(line);
    }
}

/// What ALSA's error report said, and how often.
static QStringList alsaErrors;

// ALSA's handler is a C function with a variable number of arguments.
// NOLINTNEXTLINE(cert-dcl50-cpp)
static void keepAlsaError(const char* /*file*/, int /*line*/, const char* /*function*/,
                          int /*error*/, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    alsaErrors << QString::vasprintf(format, arguments);
    va_end(arguments);
}

/// Opens a card that has these fields and no others.
/// @return 0 or ALSA's error
static int openWithFields(const QString& fields, Pcm& pcm)
{
    const VirtualCard card("card"); // makes the plug-in known
    const QByteArray text = QStringLiteral("pcm.own { type virtualcard\n%1 }").arg(fields).toUtf8();
    snd_config_t* top = nullptr;
    snd_config_t* configuration = nullptr;
    snd_input_t* input = nullptr;
    if (snd_config_update_ref(&top) < 0 || snd_config_copy(&configuration, top) < 0 ||
        snd_input_buffer_open(&input, text.constData(), text.size()) < 0 ||
        snd_config_load(configuration, input) < 0) {
        qFatal("no configuration: %s", text.constData());
    }
    snd_config_unref(top);
    snd_input_close(input);
    snd_pcm_t* opened = nullptr;
    const int error = snd_pcm_open_lconf(&opened, "own", SND_PCM_STREAM_PLAYBACK, 0, configuration);
    snd_config_delete(configuration);
    pcm.reset(opened);
    return error;
}

/// Keeps what ALSA has to say while it lives.
class AlsaErrors
{
public:
    AlsaErrors()
    {
        alsaErrors.clear();
        snd_lib_error_set_handler(keepAlsaError);
    }
    ~AlsaErrors() { snd_lib_error_set_handler(nullptr); }
    AlsaErrors(const AlsaErrors&) = delete;
    AlsaErrors& operator=(const AlsaErrors&) = delete;
};

void TestVirtualCard::wrongConfigurationIsRefused()
{
    QFETCH(QString, line);
    const AlsaErrors keep;
    Pcm pcm;
    const int error = openWithFields(line, pcm);
    QVERIFY(error == -EINVAL || error == -ENOENT);
    QVERIFY(!alsaErrors.isEmpty());
    QVERIFY(alsaErrors.last().startsWith("virtualcard: "));
}

void TestVirtualCard::cardWithoutFilesPlays()
{
    // A number that takes more than 32 bits is read, too, where ALSA takes such a one.
    const QByteArray frames = sizeof(long) > 4 ? "30000000000" : "2000000000";
    Pcm pcm;
    QCOMPARE(openWithFields("speed 20\nvanish_after " + frames, pcm), 0);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, noise(1000).samples));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
}

void TestVirtualCard::recordThatCannotBeMadeFailsTheSetUp()
{
    const AlsaErrors keep;
    Pcm pcm;
    const QString events = TestProcess::path("own.events");
    QCOMPARE(openWithFields(QStringLiteral("events \"%1\"\nrecord \"/dev/null/x.wav\"").arg(events),
                            pcm),
             0);
    QCOMPARE(configure(pcm, Setup()), -ENOTDIR);
    QCOMPARE(alsaErrors, QStringList("virtualcard: /dev/null/x.wav: Not a directory"));
}

void TestVirtualCard::filesAreNumberedBeforeTheSuffix_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::newRow("suffix") << "own.wav"
                            << "own-2.wav";
    QTest::newRow("no suffix") << "own"
                               << "own-2";
    QTest::newRow("dot in the folder") << "own.folder/own"
                                       << "own.folder/own-2";
    QTest::newRow("suffix in a folder") << "own.folder/own.wav"
                                        << "own.folder/own-2.wav";
    QTest::newRow("hidden") << "own.folder/.own"
                            << "own.folder/.own-2";
}

void TestVirtualCard::filesAreNumberedBeforeTheSuffix()
{
    QFETCH(QString, first);
    QFETCH(QString, second);
    QDir().mkpath(TestProcess::path("own.folder"));
    media::writeFile(first, "text"); // shorter than a header
    QFile::remove(TestProcess::path(second));
    Pcm pcm;
    const QString fields =
        QStringLiteral("comment \"Records\"\nhint { show on }\nspeed 20\nrecord \"%1\"");
    QCOMPARE(openWithFields(fields.arg(TestProcess::path(first)), pcm), 0);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(QFile::exists(TestProcess::path(second)));
    QCOMPARE(media::readFile(TestProcess::path(first)), QByteArray("text"));
}

void TestVirtualCard::fullDiskIsToldOnce()
{
    const VirtualCard card("card");
    const AlsaErrors keep;
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    // No file may grow beyond this size; the default would be to die of it.
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const rlimit small{10000, former.rlim_max};
    (void)std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const bool taken = writeAll(pcm, noise(30000).samples);
    const int drained = snd_pcm_drain(pcm.get());
    setrlimit(RLIMIT_FSIZE, &former);
    (void)std::signal(SIGXFSZ, SIG_DFL);
    QVERIFY(taken);
    QCOMPARE(drained, 0);
    QCOMPARE(alsaErrors.size(), 1);
    QVERIFY(alsaErrors.first().endsWith("card-card.wav: File too large"));
    QVERIFY(card.has("drained"));
}

// ---- Configurations ---------------------------------------------------------------------------

void TestVirtualCard::cardsComeAndGo()
{
    const VirtualCard first("first");
    QVERIFY(!openPcm("second"));
    QCOMPARE(errno, ENOENT);
    {
        const VirtualCard second("second");
        QVERIFY(openPcm("second"));
        QVERIFY(openPcm("first"));
    }
    QVERIFY(!openPcm("second"));
    QVERIFY(openPcm("null"));
    // A new card of an old name has played nothing.
    QVERIFY(play("first", noise(10)));
    const VirtualCard again("second");
    QCOMPARE(again.frames(), qint64(0));
    QCOMPARE(again.eventNames(), QStringList());
}

void TestVirtualCard::generatedConfigurationWorks()
{
    const QString record = TestProcess::path("a \"quoted\" name.wav");
    QProcess generator;
    generator.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    generator.start(VIRTUALCARD_CONFIG,
                    {"--plugin", VIRTUALCARD_PLUGIN, "--name", "generated", "--record", record,
                     "--speed", "20", "--starve", "wait", "--default"});
    QVERIFY(generator.waitForFinished(patience));
    QCOMPARE(generator.exitCode(), 0);
    const QByteArray before = qgetenv("ALSA_CONFIG_PATH");
    const QString file = media::writeFile("generated.conf", generator.readAllStandardOutput());
    qputenv("ALSA_CONFIG_PATH", file.toLocal8Bit());
    const media::Pcm sound = noise(3000);
    const bool played = play("default", sound);
    qputenv("ALSA_CONFIG_PATH", before);
    QVERIFY(played);
    QVERIFY(media::readFile(record).endsWith(sound.samples));
}

void TestVirtualCard::tenCardsPlayAtOnce()
{
    std::vector<std::unique_ptr<VirtualCard>> cards;
    std::vector<std::thread> clients;
    std::vector<char> successes(10, 0);
    for (unsigned i = 0; i < 10; ++i) {
        cards.push_back(std::make_unique<VirtualCard>(QStringLiteral("card%1").arg(i)));
    }
    for (unsigned i = 0; i < 10; ++i) {
        clients.emplace_back([&cards, &successes, i] {
            successes[i] = play(cards[i]->device(), noise(20000, i)) ? 1 : 0;
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    for (unsigned i = 0; i < 10; ++i) {
        QVERIFY(successes[i] == 1);
        QVERIFY(cards[i]->samples() == noise(20000, i).samples);
    }
}

// ---- GStreamer --------------------------------------------------------------------------------

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

/// What was heard without the silence that the sink adds at the end.
static QByteArray heard(const VirtualCard& card, const media::Pcm& sound)
{
    return media::withoutTrailingSilence(card.samples(), sound.frameSize());
}

void TestVirtualCard::pipelinePlaysWhole_data()
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

void TestVirtualCard::pipelinePlaysWhole()
{
    QFETCH(SampleFormat, format);
    QFETCH(int, rate);
    QFETCH(int, channels);
    QFETCH(int, frames);
    QFETCH(double, speed);
    const media::Pcm sound = media::noise(format, rate, channels, frames);
    const VirtualCard card("card", atSpeed(speed));
    Pipeline pipeline(media::writeWav("sound.wav", sound), card.device());
    pipeline.setState(GST_STATE_PLAYING);
    QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
    pipeline.setState(GST_STATE_NULL);

    QCOMPARE(card.format(), nameOf(format));
    QCOMPARE(card.rate(), rate);
    QCOMPARE(card.channels(), channels);
    QVERIFY(heard(card, sound) == sound.samples);
    QVERIFY(!card.has("xrun"));
    QCOMPARE(card.eventNames().last(), QStringLiteral("close"));
}

void TestVirtualCard::pausedPipelineGoesOn_data()
{
    QTest::addColumn<bool>("canPause");
    QTest::newRow("card that can pause") << true;
    QTest::newRow("card that cannot") << false;
}

void TestVirtualCard::pausedPipelineGoesOn()
{
    QFETCH(bool, canPause);
    const media::Pcm sound = noise(48000);
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

void TestVirtualCard::soughtPipelinePlaysTheRest_data()
{
    pausedPipelineGoesOn_data();
}

void TestVirtualCard::soughtPipelinePlaysTheRest()
{
    QFETCH(bool, canPause);
    const media::Pcm sound = noise(48000);
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
    QVERIFY(heard(card, sound) == sound.samples.mid(4 * 24000));

    // And once more from the start, after the end.
    const int before = card.samples().size();
    QVERIFY(pipeline.seek(0));
    QCOMPARE(pipeline.finish(), QStringLiteral("ended"));
    const QByteArray again = media::withoutTrailingSilence(card.samples().mid(before), 4);
    // How much of the beginning the sink leaves out is its own affair: it may take the first sound,
    // whose time is that of the frames still in the card, for late.
    QVERIFY(again.endsWith(sound.samples.mid(4 * 24000)));
}

void TestVirtualCard::stoppedPipelineStartsAgain()
{
    const media::Pcm sound = noise(24000);
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

void TestVirtualCard::tenPipelinesPlayAtOnce()
{
    const media::Pcm sound = noise(48000);
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
        QVERIFY(heard(*cards[i], sound) == sound.samples);
    }
}

void TestVirtualCard::pipelineReportsFailingCard_data()
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

void TestVirtualCard::pipelineReportsFailingCard()
{
    QFETCH(QString, refuse);
    QFETCH(qint64, vanishAfter);
    QFETCH(QString, error);
    VirtualCard::Settings settings;
    settings.refuse = refuse;
    settings.vanishAfter = vanishAfter;
    const VirtualCard card("card", settings);
    Pipeline pipeline(media::writeWav("sound.wav", noise(48000)), card.device());
    pipeline.setState(GST_STATE_PLAYING);
    QCOMPARE(pipeline.finish(), error);
    if (refuse == "format" || refuse == "rate") {
        overlookLeakedGstObject("GstCaps"); // the sink never frees those that it could not set
    }
}

KOVA_TEST(TestVirtualCard)
#include "tst_virtualcard.moc"
