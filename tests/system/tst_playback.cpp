#include "kit/LogCapture.h"
#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtTest/QtTest>

using media::SampleFormat;

/// Start, pause, stop, looping and failing devices, as heard at the sound card.
class TestPlayback : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void itemPlaysWholeWhateverItsLength_data();
    void itemPlaysWholeWhateverItsLength();
    void frameThatIsRoundedAwayIsTheFirst();
    void outcomeComesFromTheEventLoop();
    void deviceStaysOpenAfterTheEndUntilStop();

    void pauseHoldsAndStartResumes();
    void repeatedPausesLoseNothing();
    void stopWhilePausedReportsStopped();
    void destroyedWhilePausedIsSilent();

    void stopInTheMiddleReportsStopped();
    void startAfterStopPlaysFromTheBeginning();
    void startAfterEndWithoutStopPlaysNothing();
    void startAfterEndAndStopPlaysAgain();
    void secondStartDuringPlaybackChangesNothing();

    void loopPlaysAgainUntilStopped();
    void loopSwitchedOffEndsAfterTheRunningPass();
    void loopSwitchedOnDuringPlaybackLoops();

    void deviceThatCannotBeOpenedIsReported_data();
    void deviceThatCannotBeOpenedIsReported();

    void errorGivesTheDeviceBack();

    void destroyedDuringPlaybackIsSilent_data();
    void destroyedDuringPlaybackIsSilent();
    void deletedLaterInItsOwnSlot_data();
    void deletedLaterInItsOwnSlot();

private:
    media::Pcm sound;
    QString item; ///< one second of `sound`
};

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

static QStringList stopped()
{
    return {QStringLiteral("stopped token")};
}

static SimplePlayer* makePlayer(const QString& file, const QString& device)
{
    return new UriSimplePlayer(file, QStringLiteral("token"), device);
}

/// What was heard of S16 stereo sound.
static QByteArray heard(const VirtualCard& card)
{
    return media::withoutTrailingSilence(card.samples(), 4);
}

static int countLoops(const LogCapture& log)
{
    return log.texts("TRACE").count(QStringLiteral("Looping playbacktoken"));
}

/// How many ends of the item reached the engine, also those that are not reported any more.
static int countEnds(const LogCapture& log)
{
    return log.texts("TRACE").count(QStringLiteral("reporting playback end due to EOS"));
}

void TestPlayback::initTestCase()
{
    sound = media::noise(SampleFormat::S16, 48000, 2, 48000);
    item = media::writeWav("item.wav", sound);
}

void TestPlayback::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

// ---- To the end --------------------------------------------------------------------------------

void TestPlayback::itemPlaysWholeWhateverItsLength_data()
{
    QTest::addColumn<int>("frames");
    QTest::addColumn<double>("speed");

    QTest::newRow("3 frames") << 3 << 1.0;
    QTest::newRow("1 ms") << 48 << 1.0;
    QTest::newRow("20 ms") << 960 << 1.0;
    QTest::newRow("139 ms") << 6672 << 1.0;
    QTest::newRow("0.5 s") << 24000 << 1.0;
    QTest::newRow("20 ms, fast") << 960 << 20.0;
    QTest::newRow("10 s, fast") << 480000 << 20.0;
}

void TestPlayback::itemPlaysWholeWhateverItsLength()
{
    QFETCH(int, frames);
    QFETCH(double, speed);
    const media::Pcm whole = media::noise(SampleFormat::S16, 48000, 2, frames);
    VirtualCard::Settings settings;
    settings.speed = speed;
    VirtualCard card("card", settings);
    PlayerProbe probe(makePlayer(media::writeWav("length.wav", whole), card.device()));

    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(heard(card) == whole.samples);
}

void TestPlayback::frameThatIsRoundedAwayIsTheFirst()
{
    // GStreamer's sink computes from nanoseconds, rounded down, how many frames a block has. Other
    // numbers of frames than multiples of three cannot be written in nanoseconds at 48 kHz: where
    // the first block has such a number, its first frame is never played.
    const media::Pcm odd = media::noise(SampleFormat::S16, 48000, 2, 100);
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(media::writeWav("odd.wav", odd), card.device()));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(heard(card) == odd.samples || heard(card) == odd.samples.mid(odd.frameSize()));
}

void TestPlayback::outcomeComesFromTheEventLoop()
{
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.outcomes.all, QStringList());
    QCOMPARE(probe.finish(), stopped());
}

void TestPlayback::deviceStaysOpenAfterTheEndUntilStop()
{
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe.waitForOutcome());
    QVERIFY(!card.has("close"));
    QVERIFY(probe->stopPlayback());
    QVERIFY(card.has("close"));
    QCOMPARE(probe.finish(), ended());
}

// ---- Pause -------------------------------------------------------------------------------------

void TestPlayback::pauseHoldsAndStartResumes()
{
    // A slow card gives a busy machine time to pause before the end, and to go on without gaps.
    VirtualCard::Settings settings;
    settings.speed = 2.0;
    VirtualCard card("card", settings);
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(4800));
    QVERIFY(probe.pauseAndSettle());
    QVERIFY(waitFor([&card] { return card.has("pause"); }));
    const QByteArray before = heard(card);
    deliverQueuedEvents();
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(before.size() < sound.samples.size());
    QVERIFY(heard(card) == before);

    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(media::withoutSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestPlayback::repeatedPausesLoseNothing()
{
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    for (int frames : {2400, 4800, 9600, 19200}) {
        QVERIFY(card.waitForFrames(frames));
        QVERIFY(probe.pauseAndSettle());
        QVERIFY(probe->startPlayback());
    }
    QCOMPARE(probe.finish(), ended());
    QVERIFY(media::withoutSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestPlayback::stopWhilePausedReportsStopped()
{
    VirtualCard card("card", VirtualCard::Settings::standingStill());
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(480));
    QVERIFY(probe->pausePlayback());
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), stopped());
    QVERIFY(sound.samples.startsWith(heard(card)));
}

void TestPlayback::destroyedWhilePausedIsSilent()
{
    VirtualCard card("card", VirtualCard::Settings::standingStill());
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(480));
    QVERIFY(probe->pausePlayback());
    QCOMPARE(probe.destroy(), QStringList());
}

// ---- Stop and start ----------------------------------------------------------------------------

void TestPlayback::stopInTheMiddleReportsStopped()
{
    VirtualCard card("card", VirtualCard::Settings::standingStill());
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(4800));
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), stopped());
    QVERIFY(heard(card) == sound.samples.left(4 * 4800));
}

void TestPlayback::startAfterStopPlaysFromTheBeginning()
{
    LogCapture log;
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(4800));
    QVERIFY(probe->stopPlayback());
    const QByteArray firstPass = card.samples();
    QVERIFY(probe.waitForOutcome());

    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&log] { return countEnds(log) == 1; }));
    QCOMPARE(probe.finish(), stopped());
    QVERIFY(sound.samples.startsWith(media::withoutTrailingSilence(firstPass, 4)));
    QVERIFY(media::withoutTrailingSilence(card.samples().mid(firstPass.size()), 4) ==
            sound.samples);
}

void TestPlayback::startAfterEndWithoutStopPlaysNothing()
{
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe.waitForOutcome());
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(heard(card) == sound.samples);
}

void TestPlayback::startAfterEndAndStopPlaysAgain()
{
    LogCapture log;
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe.waitForOutcome());
    QVERIFY(probe->stopPlayback());
    const QByteArray firstPass = card.samples();

    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&log] { return countEnds(log) == 2; }));
    QCOMPARE(probe.finish(), ended());
    QVERIFY(media::withoutTrailingSilence(firstPass, 4) == sound.samples);
    QVERIFY(media::withoutTrailingSilence(card.samples().mid(firstPass.size()), 4) ==
            sound.samples);
}

void TestPlayback::secondStartDuringPlaybackChangesNothing()
{
    LogCapture log;
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(4800));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(heard(card) == sound.samples);
    QCOMPARE(log.texts("ERROR"), QStringList());
}

// ---- Looping -----------------------------------------------------------------------------------

void TestPlayback::loopPlaysAgainUntilStopped()
{
    LogCapture log;
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    probe->loop = true;
    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&log] { return countLoops(log) >= 3; }));
    QCOMPARE(probe.outcomes.all, QStringList());
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), stopped());
    QCOMPARE(log.texts("ERROR"), QStringList());
    QVERIFY(card.samples().startsWith(sound.samples));
}

void TestPlayback::loopSwitchedOffEndsAfterTheRunningPass()
{
    LogCapture log;
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    probe->loop = true;
    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&log] { return countLoops(log) >= 1; }));
    probe->loop = false;
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(countEnds(log), 1);
    QVERIFY(heard(card).endsWith(sound.samples.right(4 * 24000)));
}

void TestPlayback::loopSwitchedOnDuringPlaybackLoops()
{
    LogCapture log;
    VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(480));
    probe->loop = true;
    QVERIFY(waitFor([&log] { return countLoops(log) >= 1; }));
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), stopped());
}

// ---- Devices -----------------------------------------------------------------------------------

static const char* const notOpened = "error token: Could not open audio device for playback.";

void TestPlayback::deviceThatCannotBeOpenedIsReported_data()
{
    QTest::addColumn<QString>("device");
    QTest::newRow("unknown name") << "no_such_device";
    QTest::newRow("empty name") << "";
    QTest::newRow("not a name at all") << "\xc3\xa4{ }:%'\n";
}

void TestPlayback::deviceThatCannotBeOpenedIsReported()
{
    QFETCH(QString, device);
    LogCapture log;
    PlayerProbe probe(makePlayer(item, device));
    QVERIFY(!probe->startPlayback());
    QVERIFY(log.texts("ERROR").contains("state change to state PLAYING failed"));
    QCOMPARE(probe.finish(), QStringList(notOpened));

    // The next player of the process is none the worse.
    VirtualCard card("card");
    PlayerProbe next(makePlayer(item, card.device()));
    QVERIFY(next->startPlayback());
    QCOMPARE(next.finish(), ended());
    QVERIFY(heard(card) == sound.samples);
}

void TestPlayback::errorGivesTheDeviceBack()
{
    LogCapture log;
    VirtualCard::Settings settings;
    settings.vanishAfter = 9600;
    VirtualCard card("card", settings);
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe.waitForOutcome());
    QVERIFY(card.has("close"));
    QVERIFY(!probe->pausePlayback());
    QVERIFY(!probe->stopPlayback());
    QVERIFY(log.texts("ERROR").contains("Pipeline not initialized - not stopping"));
    QCOMPARE(probe.finish().size(), 1);
}

// ---- Destruction -------------------------------------------------------------------------------

void TestPlayback::destroyedDuringPlaybackIsSilent_data()
{
    QTest::addColumn<int>("frames");
    QTest::newRow("before the start") << -1;
    QTest::newRow("right after the start") << 0;
    QTest::newRow("after the first frame") << 1;
    QTest::newRow("in the middle") << 2400;
    QTest::newRow("when nothing moves any more") << 4800;
}

void TestPlayback::destroyedDuringPlaybackIsSilent()
{
    QFETCH(int, frames);
    VirtualCard card("card", VirtualCard::Settings::standingStill());
    PlayerProbe probe(makePlayer(item, card.device()));
    QVERIFY(frames < 0 || probe->startPlayback());
    QVERIFY(card.waitForFrames(frames));
    QCOMPARE(probe.destroy(), QStringList());
}

void TestPlayback::deletedLaterInItsOwnSlot_data()
{
    QTest::addColumn<QString>("end");
    QTest::newRow("ended") << "ended token";
    QTest::newRow("stopped") << "stopped token";
    QTest::newRow("failed") << notOpened;
}

void TestPlayback::deletedLaterInItsOwnSlot()
{
    QFETCH(QString, end);
    VirtualCard card("card");
    const bool fails = end == QLatin1String(notOpened);
    QPointer<SimplePlayer> player(makePlayer(item, fails ? "no_such_device" : card.device()));
    Outcomes outcomes(player);
    outcomes.inSlot = [&player] { player->deleteLater(); };

    QCOMPARE(player->startPlayback(), !fails);
    if (end == QLatin1String("stopped token")) {
        QVERIFY(player->stopPlayback());
    }
    QVERIFY(waitFor([&player] {
        deliverQueuedEvents();
        return player.isNull();
    }));
    QCOMPARE(outcomes.all, QStringList(end));
}

KOVA_TEST(TestPlayback)
#include "tst_playback.moc"
