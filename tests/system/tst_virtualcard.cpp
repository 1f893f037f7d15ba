#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "system/CardClient.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <array>
#include <cstdlib>

using media::SampleFormat;

/// Playing on the virtual sound card through ALSA, and its recordings.
class TestVirtualCard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

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
    void fileWithoutSamplesIsUsedForAnyLayout();
    void openedAgainAppends();
    void otherParametersGoToAnotherFile();
    void recordingHasValidHeader_data();
    void recordingHasValidHeader();
};

// ---- Playing ----------------------------------------------------------------------------------

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
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(speed));
    const Pcm pcm = openPcm(card.device());
    QVERIFY(pcm);
    Setup setup = Setup(sound);
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
    const media::Pcm sound = media::noise(20000);
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
    const media::Pcm sound = media::noise(20000);
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
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(speed));
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, media::noise(frames).samples)); // all of it fits into the buffer
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
    const media::Pcm sound = media::noise(7);
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
    const media::Pcm sound = media::noise(9600);
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(0.0005));
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
    const media::Pcm sound = media::noise(9600);
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(1.0));
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
    const media::Pcm sound = media::noise(2000);
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
    const media::Pcm sound = media::noise(2000);
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
    const media::Pcm sound = media::noise(9600);
    const VirtualCard card("card", VirtualCard::Settings::atSpeed(0.0005));
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
    const VirtualCard card("card", VirtualCard::Settings::stallingAfter(500));
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, media::noise(1000).samples));
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

void TestVirtualCard::fileWithoutSamplesIsUsedForAnyLayout()
{
    const VirtualCard card("card");
    Setup floats;
    floats.format = SND_PCM_FORMAT_FLOAT_LE;
    floats.channels = 6;
    QCOMPARE(configure(openPcm(card.device()), floats), 0);
    const media::Pcm sound = media::noise(4800);
    QVERIFY(play(card.device(), sound));
    QCOMPARE(card.recordPaths(), QStringList(card.recordPath()));
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

void TestVirtualCard::openedAgainAppends()
{
    const VirtualCard card("card");
    const media::Pcm first = media::noise(1000, 1);
    const media::Pcm second = media::noise(1001, 2);
    QVERIFY(play(card.device(), first));
    QVERIFY(play(card.device(), second));
    QVERIFY(card.samples() == first.samples + second.samples);
    QCOMPARE(card.recordPaths(), QStringList(card.recordPath()));
}

void TestVirtualCard::otherParametersGoToAnotherFile()
{
    const VirtualCard card("card");
    const media::Pcm first = media::noise(1000, 1);
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

KOVA_TEST(TestVirtualCard)
#include "tst_virtualcard.moc"
