#include "kit/Holdings.h"
#include "kit/LogCapture.h"
#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/DataSimplePlayer.h>

#include <QtCore/QDir>
#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

#include <glib.h>

#include <algorithm>
#include <memory>
#include <vector>

using media::SampleFormat;

/// Items in memory, as heard at the sound card.
class TestData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void losslessItemArrivesBitExact_data();
    void losslessItemArrivesBitExact();
    void lossyItemArrivesWhole_data();
    void lossyItemArrivesWhole();
    void largeItemPlaysToItsEnd();
    void largeItemPlaysUntilStopped();

    void whatIsNoSoundIsReported_data();
    void whatIsNoSoundIsReported();
    void cutItemPlaysWhatIsThere_data();
    void cutItemPlaysWhatIsThere();

    void callerDoesWhatItLikesWithItsArray_data();
    void callerDoesWhatItLikesWithItsArray();
    void borrowedBytesMayGoOnceTheyAreHeard();

    void pauseHoldsAndStartResumes();
    void pausedItemPlaysToItsEnd();
    void stopAndStartPlaysFromTheBeginning();
    void endStopAndStartPlaysAgain();
    void loopIsRefused();

    void tenAtOnceAllPlayWhole();
    void oneArrayServesManyPlayers();

    void destroyedSoonIsSilent_data();
    void destroyedSoonIsSilent();
    void destroyedLaterIsSilent_data();
    void destroyedLaterIsSilent();

private:
    media::Pcm sound; ///< one second of noise
    QByteArray item;  ///< the same as a WAV file
};

static QStringList ended()
{
    return {QStringLiteral("ended token")};
}

static QStringList stopped()
{
    return {QStringLiteral("stopped token")};
}

static SimplePlayer* makePlayer(const QByteArray& bytes, const VirtualCard& card,
                                const QString& token = QStringLiteral("token"))
{
    return new DataSimplePlayer(bytes, token, card.device());
}

static QStringList play(const QByteArray& bytes, const VirtualCard& card)
{
    PlayerProbe probe(makePlayer(bytes, card));
    probe->startPlayback();
    return probe.finish();
}

/// What was heard of S16 stereo sound.
static QByteArray heard(const VirtualCard& card)
{
    return media::withoutTrailingSilence(card.samples(), 4);
}

/// What was heard of sound whose decoder chose the format.
static media::Pcm heardSound(const VirtualCard& card)
{
    media::Pcm sound{card.format() == "F32" ? SampleFormat::F32 : SampleFormat::S16, card.rate(),
                     card.channels(), QByteArray()};
    sound.samples = media::withoutTrailingSilence(card.samples(), sound.frameSize());
    return sound;
}

/// How many ends of the item reached the engine, also those that are not reported any more.
static int countEnds(const LogCapture& log)
{
    return log.texts("TRACE").count(QStringLiteral("reporting playback end due to EOS"));
}

void TestData::initTestCase()
{
    sound = media::noise(SampleFormat::S16, 48000, 2, 48000);
    item = media::wavBytes(sound);
}

void TestData::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

namespace {

/// One player and its card.
struct Desk
{
    Desk(int number, const QByteArray& itemBytes,
         const VirtualCard::Settings& settings = VirtualCard::Settings())
        : bytes(itemBytes), token(QStringLiteral("player %1").arg(number)),
          card(QStringLiteral("card%1").arg(number), settings),
          probe(makePlayer(bytes, card, token))
    {
    }

    QStringList ended() const { return {QStringLiteral("ended ") + token}; }

    QByteArray bytes;
    QString token;
    VirtualCard card;
    PlayerProbe probe;
};

} // namespace

// ---- Whole items -------------------------------------------------------------------------------

void TestData::losslessItemArrivesBitExact_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("WAV") << item;
    const QString wav = media::writeWav("whole.wav", sound);
    QTest::newRow("FLAC") << media::readFile(media::encode("whole.flac", wav));
}

void TestData::losslessItemArrivesBitExact()
{
    QFETCH(QByteArray, bytes);
    const VirtualCard card("card");
    QCOMPARE(play(bytes, card), ended());
    QVERIFY(heard(card) == sound.samples);
}

void TestData::lossyItemArrivesWhole_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::newRow("Ogg Vorbis") << "ogg";
    QTest::newRow("Opus") << "opus";
    QTest::newRow("MP3") << "mp3";
}

void TestData::lossyItemArrivesWhole()
{
    QFETCH(QString, suffix);
    const media::Pcm tone = media::tone(48000, 2, 48000);
    const QString file = media::encode("tone." + suffix, media::writeWav("tone.wav", tone));
    const VirtualCard card("card");
    QCOMPARE(play(media::readFile(file), card), ended());

    // An encoder may add or take the length of a block at either end, which nobody hears.
    const media::Pcm played = heardSound(card);
    QCOMPARE(played.rate, 48000);
    QCOMPARE(played.channels, 2);
    QVERIFY(qAbs(played.frames() - 48000) < 1200);
    QVERIFY(qAbs(media::loudness(played) / media::loudness(tone) - 1.0) < 0.1);
}

/// 64 MiB of noise.
static media::Pcm largeSound(SampleFormat format, int rate, int channels)
{
    media::Pcm large{format, rate, channels, QByteArray()};
    const int frames = (1 << 20) / large.frameSize();
    large.samples = media::noise(format, rate, channels, frames).samples.repeated(64);
    return large;
}

void TestData::largeItemPlaysToItsEnd()
{
    // As many bytes as a second can have: what plays longer only takes longer.
    const media::Pcm large = largeSound(SampleFormat::S32, 192000, 8);
    const VirtualCard card("card");
    QCOMPARE(play(media::wavBytes(large), card), ended());
    QVERIFY(media::withoutTrailingSilence(card.samples(), large.frameSize()) == large.samples);
}

void TestData::largeItemPlaysUntilStopped()
{
    const media::Pcm large = largeSound(SampleFormat::S16, 48000, 2);
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(media::wavBytes(large), card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(96000));
    QVERIFY(probe->stopPlayback());
    QCOMPARE(withoutRefusals(probe.finish()), stopped());
    QVERIFY(large.samples.startsWith(heard(card)));
}

// ---- Broken items ------------------------------------------------------------------------------

/// Bytes that are the same in every run and look like nothing.
static QByteArray randomBytes(int size)
{
    QRandomGenerator generator(1);
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes) {
        byte = static_cast<char>(generator.generate());
    }
    return bytes;
}

void TestData::whatIsNoSoundIsReported_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QString unknown("Could not determine type of stream.");
    QTest::newRow("nothing") << QByteArray() << "Stream contains no data.";
    QTest::newRow("1 byte") << QByteArray("0") << unknown;
    QTest::newRow("10 bytes") << QByteArray("0123456789") << unknown;
    QTest::newRow("64 KiB of random") << randomBytes(65536) << unknown;
    QTest::newRow("text") << QByteArray("Nothing to be heard here.\n").repeated(1000)
                          << "This appears to be a text file";
    QTest::newRow("zeros") << QByteArray(65536, '\0') << unknown;
}

void TestData::whatIsNoSoundIsReported()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    const VirtualCard card("card");
    QCOMPARE(withoutRefusals(play(bytes, card)), QStringList("error token: " + reason));
    QCOMPARE(card.frames(), qint64(0));
}

void TestData::cutItemPlaysWhatIsThere_data()
{
    QTest::addColumn<QByteArray>("whole");
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("mostLost");
    // Each is long enough that the first tenth holds all headers: a demuxer's error there can get
    // lost. A cut costs a frame of WAV, a block of FLAC, some frames of MP3, or a page of Ogg; the
    // headers' share of the bytes comes on top. What plays longer only takes longer.
    const auto row = [](const char* suffix, int frames, int mostLost, const auto& encode) {
        const QString name = QStringLiteral("noise.") + suffix;
        const media::Pcm noise = media::noise(SampleFormat::S16, 48000, 2, frames);
        QTest::newRow(suffix) << media::readFile(encode(name, media::writeWav("noise.wav", noise)))
                              << frames << mostLost;
    };
    row("wav", 48000, 1 + 44 / 4, [](const QString&, const QString& wav) { return wav; });
    row("flac", 96000, 4608 + 2304, media::encode);
    row("mp3", 96000, 3 * 1152, media::encode);
    row("ogg", 216000, 43200, media::encode);
    row("opus", 72000, 10800, [](const QString& name, const QString& wav) {
        const QString path = TestProcess::path(name);
        media::run("opusenc", {"--quiet", "--serial", "1", "--max-delay", "100", wav, path});
        return path;
    });
}

void TestData::cutItemPlaysWhatIsThere()
{
    QFETCH(QByteArray, whole);
    QFETCH(int, frames);
    QFETCH(int, mostLost);
    const bool isExact = whole.startsWith("RIFF");
    VirtualCard::Settings settings;
    if (!isExact) {
        settings.speed = 200.0; // gaps would do no harm
    }
    std::vector<std::unique_ptr<Desk>> desks;
    for (int tenths = 1; tenths < 10; ++tenths) {
        const QByteArray cut = whole.left(whole.size() / 10 * tenths);
        desks.push_back(std::make_unique<Desk>(tenths, cut, settings));
        QVERIFY(desks.back()->probe->startPlayback());
    }
    int share = 0;
    for (const auto& desk : desks) {
        share += frames / 10;
        const QStringList outcomes = desk->probe.finish();
        if (desk->card.frames() == 0) {
            // Not one page of sound was whole.
            QVERIFY(whole.startsWith("OggS"));
            QVERIFY(share <= mostLost);
            QCOMPARE(outcomes, QStringList("error " + desk->token +
                                           ": No valid frames decoded before end of stream"));
            continue;
        }
        QCOMPARE(outcomes, desk->ended());
        QVERIFY(heardSound(desk->card).frames() >= share - mostLost);
        if (isExact) {
            // All but the last frame, of which a part may have been cut.
            const QByteArray played = heard(desk->card);
            QVERIFY(whole.mid(44).startsWith(played));
            QVERIFY(played.size() > desk->bytes.size() - 44 - 8);
        }
    }
}

// ---- The caller's array ------------------------------------------------------------------------

void TestData::callerDoesWhatItLikesWithItsArray_data()
{
    QTest::addColumn<QString>("deed");
    QTest::addColumn<bool>("playing");
    for (const char* deed : {"keeps", "changes", "drops"}) {
        QTest::addRow("%s it at once", deed) << QString(deed) << false;
        QTest::addRow("%s it while it plays", deed) << QString(deed) << true;
    }
}

void TestData::callerDoesWhatItLikesWithItsArray()
{
    QFETCH(QString, deed);
    QFETCH(bool, playing);
    QByteArray bytes = media::wavBytes(sound);
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(bytes, card));
    QVERIFY(probe->startPlayback());
    QVERIFY(!playing || card.waitForFrames(4800));
    if (deed == "changes") {
        bytes.fill('x');
    } else if (deed == "drops") {
        bytes = QByteArray();
    }
    QCOMPARE(probe.finish(), ended());
    QVERIFY(heard(card) == sound.samples);
    QVERIFY(deed != "keeps" || bytes == item);
}

void TestData::borrowedBytesMayGoOnceTheyAreHeard()
{
    std::vector<char> lent(item.begin(), item.end());
    const VirtualCard card("card");
    PlayerProbe probe(
        makePlayer(QByteArray::fromRawData(lent.data(), static_cast<int>(lent.size())), card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(1));
    std::fill(lent.begin(), lent.end(), 'x');
    lent = std::vector<char>();
    QCOMPARE(probe.finish(), ended());
    QVERIFY(heard(card) == sound.samples);
}

// ---- Pause, stop and start ---------------------------------------------------------------------

void TestData::pauseHoldsAndStartResumes()
{
    // Minutes in real time: the end cannot come in between.
    const media::Pcm large = largeSound(SampleFormat::S16, 48000, 2);
    VirtualCard::Settings settings;
    settings.speed = 1.0;
    const VirtualCard card("card", settings);
    PlayerProbe probe(makePlayer(media::wavBytes(large), card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(4800));
    QVERIFY(probe.pauseAndSettle());
    QVERIFY(waitFor([&card] { return card.has("pause"); }));
    const qint64 before = card.frames();
    deliverQueuedEvents();
    QCOMPARE(probe.outcomes.all, QStringList());
    QCOMPARE(card.frames(), before);

    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(before + 4800));
    QVERIFY(probe->stopPlayback());
    QCOMPARE(withoutRefusals(probe.finish()), stopped());
    QVERIFY(large.samples.startsWith(heard(card)));
}

void TestData::pausedItemPlaysToItsEnd()
{
    // A sink that resumes plays silence where sound comes late: a slow card gives a busy machine
    // time.
    VirtualCard::Settings settings;
    settings.speed = 2.0;
    const VirtualCard card("card", settings);
    PlayerProbe probe(makePlayer(item, card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(4800));
    QVERIFY(probe.pauseAndSettle());
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QVERIFY(media::withoutSilence(card.samples(), sound.frameSize()) == sound.samples);
}

void TestData::stopAndStartPlaysFromTheBeginning()
{
    const LogCapture log;
    auto card = std::make_unique<VirtualCard>("card", VirtualCard::Settings::standingStill());
    PlayerProbe probe(makePlayer(item, *card));
    QVERIFY(probe->startPlayback());
    QVERIFY(card->waitForFrames(4800));
    QVERIFY(probe->stopPlayback());
    QVERIFY(probe.waitForOutcome());
    QVERIFY(heard(*card) == sound.samples.left(4 * 4800));

    card.reset();
    card = std::make_unique<VirtualCard>("card");
    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&log] { return countEnds(log) == 1; }));
    QCOMPARE(withoutRefusals(probe.finish()), stopped());
    QVERIFY(heard(*card) == sound.samples);
}

void TestData::endStopAndStartPlaysAgain()
{
    const LogCapture log;
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card));
    QVERIFY(probe->startPlayback());
    QVERIFY(probe.waitForOutcome());
    QVERIFY(probe->stopPlayback());
    const QByteArray firstPass = card.samples();

    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&log] { return countEnds(log) == 2; }));
    QCOMPARE(probe.finish(), ended());
    QVERIFY(media::withoutTrailingSilence(firstPass, 4) == sound.samples);
    QVERIFY(heard(card).mid(firstPass.size()) == sound.samples);
}

void TestData::loopIsRefused()
{
    const LogCapture log;
    const VirtualCard card("card");
    PlayerProbe probe(makePlayer(item, card));
    probe->loop = true;
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), ended());
    QCOMPARE(log.texts("ERROR"), QStringList("Restart(loop) playback not implemented"));
    QVERIFY(heard(card) == sound.samples);
}

// ---- Many players ------------------------------------------------------------------------------

void TestData::tenAtOnceAllPlayWhole()
{
    std::vector<media::Pcm> sounds;
    std::vector<std::unique_ptr<Desk>> desks;
    for (int i = 0; i < 10; ++i) {
        sounds.push_back(media::noise(SampleFormat::S16, 48000, 2, 12000, quint32(i + 1)));
        desks.push_back(std::make_unique<Desk>(i, media::wavBytes(sounds.back())));
        QVERIFY(desks.back()->probe->startPlayback());
    }
    for (std::size_t i = 0; i < desks.size(); ++i) {
        QCOMPARE(desks[i]->probe.finish(), desks[i]->ended());
        QVERIFY(heard(desks[i]->card) == sounds[i].samples);
    }
}

void TestData::oneArrayServesManyPlayers()
{
    std::vector<std::unique_ptr<Desk>> desks;
    for (int i = 0; i < 4; ++i) {
        desks.push_back(std::make_unique<Desk>(i, item));
        QVERIFY(desks.back()->probe->startPlayback());
    }
    for (const auto& desk : desks) {
        QCOMPARE(desk->probe.finish(), desk->ended());
        QVERIFY(heard(desk->card) == sound.samples);
    }
}

// ---- Destruction -------------------------------------------------------------------------------

namespace {

/// Brings a player that was just made into a state, and tells how often that is done.
struct EarlyState
{
    void (*enter)(SimplePlayer& player);
    int rounds;
};

/// Whether a sanitizer or an emulator makes every step take many times as long.
bool isMachineSlow()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return qEnvironmentVariableIsSet("KOVA_EMULATOR");
#endif
}

} // namespace
Q_DECLARE_METATYPE(EarlyState)

void TestData::destroyedSoonIsSilent_data()
{
    QTest::addColumn<EarlyState>("state");
    const int share = isMachineSlow() ? 10 : 1;
    const auto row = [share](const char* name, int rounds, void (*enter)(SimplePlayer&)) {
        QTest::newRow(name) << EarlyState{enter, rounds / share};
    };
    row("never started", 300, [](SimplePlayer&) {});
    row("started", 600, [](SimplePlayer& player) { player.startPlayback(); });
    row("starting, messages delivered", 600, [](SimplePlayer& player) {
        player.startPlayback();
        deliverQueuedEvents();
    });
    row("paused", 300, [](SimplePlayer& player) {
        player.startPlayback();
        player.pausePlayback();
    });
    row("stopped", 100, [](SimplePlayer& player) {
        player.startPlayback();
        player.stopPlayback();
    });
    row("stopped and started", 100, [](SimplePlayer& player) {
        player.startPlayback();
        player.stopPlayback();
        player.startPlayback();
    });
}

void TestData::destroyedSoonIsSilent()
{
    QFETCH(EarlyState, state);
    const VirtualCard card("card");
    QByteArray kept;
    Holdings before{0, 0};
    for (int round = 0; round < state.rounds; ++round) {
        // Every other time the caller keeps the array, so that the engine copies it on the way.
        QByteArray bytes(item.constData(), item.size());
        kept = round % 2 == 0 ? bytes : QByteArray();
        PlayerProbe probe(makePlayer(bytes, card));
        bytes = QByteArray();
        state.enter(*probe.player);
        QCOMPARE(withoutRefusals(probe.destroy()), QStringList());
        if (round == 1) {
            before = Holdings::now();
        }
    }
    QVERIFY(waitFor([&before] { return Holdings::now().within(before); }));
}

namespace {

/// Brings a player into a state that takes its time, and tells what it reports on the way.
struct LateState
{
    bool (*enter)(PlayerProbe& probe, const VirtualCard& card);
    QByteArray bytes; ///< the item
    QStringList outcomes;
};

} // namespace
Q_DECLARE_METATYPE(LateState)

void TestData::destroyedLaterIsSilent_data()
{
    QTest::addColumn<LateState>("state");
    const auto row = [](const char* name, const QByteArray& bytes, const QStringList& outcomes,
                        bool (*enter)(PlayerProbe&, const VirtualCard&)) {
        QTest::newRow(name) << LateState{enter, bytes, outcomes};
    };
    row("playing", item, {}, [](PlayerProbe& probe, const VirtualCard& card) {
        return probe->startPlayback() && card.waitForFrames(480);
    });
    row("paused while it played", item, {}, [](PlayerProbe& probe, const VirtualCard& card) {
        return probe->startPlayback() && card.waitForFrames(480) && probe->pausePlayback();
    });
    row("stopped while it played", item, stopped(),
        [](PlayerProbe& probe, const VirtualCard& card) {
            return probe->startPlayback() && card.waitForFrames(480) && probe->stopPlayback() &&
                   probe.waitForOutcome();
        });
    const media::Pcm shortSound = media::noise(SampleFormat::S16, 48000, 2, 480);
    row("ended, not stopped", media::wavBytes(shortSound), ended(),
        [](PlayerProbe& probe, const VirtualCard&) {
            return probe->startPlayback() && probe.waitForOutcome();
        });
    row("failed", "no sound", {"error token: Could not determine type of stream."},
        [](PlayerProbe& probe, const VirtualCard&) {
            return probe->startPlayback() && probe.waitForOutcome();
        });
}

void TestData::destroyedLaterIsSilent()
{
    QFETCH(LateState, state);
    const VirtualCard card("card", VirtualCard::Settings::standingStill());
    PlayerProbe probe(makePlayer(state.bytes, card));
    QVERIFY(state.enter(probe, card));
    QCOMPARE(withoutRefusals(probe.destroy()), state.outcomes);
}

KOVA_TEST(TestData)
#include "tst_data.moc"
