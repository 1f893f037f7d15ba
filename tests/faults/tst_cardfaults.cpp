#include "faults/Sources.h"

#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

/// Sound cards that refuse, vanish or stand still, under players of every source.
class TestCardFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void cardThatRefusesIsReported_data();
    void cardThatRefusesIsReported();
    void cardThatVanishesIsReported_data();
    void cardThatVanishesIsReported();

    void cardThatStandsStillIsStopped_data();
    void cardThatStandsStillIsStopped();
    void cardThatStandsStillLetsThePlayerGo_data();
    void cardThatStandsStillLetsThePlayerGo();

private:
    media::Pcm sound;
    QByteArray item; ///< one second of `sound`
};

void TestCardFaults::initTestCase()
{
    sound = media::noise(media::SampleFormat::S16, 48000, 2, 48000);
    item = media::wavBytes(sound);
}

void TestCardFaults::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

/// What was heard of S16 stereo sound.
static QByteArray heard(const VirtualCard& card)
{
    return media::withoutTrailingSilence(card.samples(), 4);
}

// ---- Cards that fail ---------------------------------------------------------------------------

void TestCardFaults::cardThatRefusesIsReported_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<QString>("refuse");
    QTest::addColumn<bool>("starts");
    QTest::addColumn<QString>("reason");
    const QString noSettings("Could not get/set settings from/on resource.");
    for (const Source source : allSources) {
        QTest::addRow("%s, open", nameOf(source))
            << source << "open" << false
            << "Could not open audio device for playback. Device is being used by another "
               "application.";
        QTest::addRow("%s, format", nameOf(source)) << source << "format" << true << noSettings;
        QTest::addRow("%s, rate", nameOf(source)) << source << "rate" << true << noSettings;
    }
}

void TestCardFaults::cardThatRefusesIsReported()
{
    QFETCH(Source, source);
    QFETCH(QString, refuse);
    QFETCH(bool, starts);
    QFETCH(QString, reason);
    VirtualCard::Settings settings;
    settings.refuse = refuse;
    const VirtualCard card("refusing", settings);
    SourcedPlayer player(source, item, card.device());
    QCOMPARE(player.start(), starts);
    QCOMPARE(player.finish(), QStringList("error token: " + reason));
    if (starts) {
        // The sink keeps the caps that the card refused, every other time.
        overlookLeakedGstObject(QStringLiteral("GstCaps"));
    }
    QCOMPARE(flawOfNextPlayer(source), QString());
}

void TestCardFaults::cardThatVanishesIsReported_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<int>("frames");
    const int period = 480;
    for (const Source source : allSources) {
        for (const int frames : {0, 1, period - 1, period, period + 1, 20 * period}) {
            QTest::addRow("%s, %d frames", nameOf(source), frames) << source << frames;
        }
    }
}

void TestCardFaults::cardThatVanishesIsReported()
{
    QFETCH(Source, source);
    QFETCH(int, frames);
    VirtualCard::Settings settings;
    settings.vanishAfter = frames;
    const VirtualCard card("vanishing", settings);
    SourcedPlayer player(source, item, card.device());
    QVERIFY(player.start());
    QCOMPARE(
        player.finish(),
        QStringList(
            "error token: Error outputting to audio device. The device has been disconnected."));
    QVERIFY(card.has("close"));
    QCOMPARE(difference(heard(card), sound.samples.left(sound.frameSize() * frames)), QString());
    QCOMPARE(flawOfNextPlayer(source), QString());
}

// ---- Cards that stand still --------------------------------------------------------------------

/// Rows of cards that stand still after so many frames, and items that have more of them: many
/// more, or so few that the card's buffer takes them all.
static void addStandingCards()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<int>("frames");
    QTest::addColumn<bool>("fitsIntoBuffer");
    for (const Source source : allSources) {
        for (const int frames : isLong() ? QVector<int>{0, 1, 480, 4800} : QVector<int>{1, 4800}) {
            QTest::addRow("%s, %d frames", nameOf(source), frames) << source << frames << false;
        }
        QTest::addRow("%s, item in the buffer", nameOf(source)) << source << 480 << true;
    }
}

/// Plays until the card stands still, and shows that nothing ends by itself.
static void playUntilItStands(SourcedPlayer& player, const VirtualCard& card, int frames)
{
    QVERIFY(player.start());
    QVERIFY(waitFor([&card] { return card.has("first-frame"); }));
    QVERIFY(waitFor([&card, frames] { return card.frames() == frames; }));
    deliverQueuedEvents();
    QCOMPARE(player.probe.outcomes.all, QStringList());
}

void TestCardFaults::cardThatStandsStillIsStopped_data()
{
    addStandingCards();
}

void TestCardFaults::cardThatStandsStillIsStopped()
{
    QFETCH(Source, source);
    QFETCH(int, frames);
    QFETCH(bool, fitsIntoBuffer);
    VirtualCard::Settings settings;
    settings.stallAfter = frames;
    const VirtualCard card("standing", settings);
    const media::Pcm few = media::noise(media::SampleFormat::S16, 48000, 2, 4800);
    SourcedPlayer player(source, fitsIntoBuffer ? media::wavBytes(few) : item, card.device());
    playUntilItStands(player, card, frames);
    QElapsedTimer sinceStop;
    sinceStop.start();
    QVERIFY(player.probe->stopPlayback());
    QVERIFY(card.has("close"));
    const QStringList outcomes = player.probe.finish();
    tellMeasured(outcomes, sinceStop);
    QCOMPARE(withoutRefusals(outcomes), QStringList("stopped token"));
    QCOMPARE(difference(heard(card),
                        (fitsIntoBuffer ? few : sound).samples.left(sound.frameSize() * frames)),
             QString());
    QCOMPARE(flawOfNextPlayer(source), QString());
}

void TestCardFaults::cardThatStandsStillLetsThePlayerGo_data()
{
    addStandingCards();
}

void TestCardFaults::cardThatStandsStillLetsThePlayerGo()
{
    QFETCH(Source, source);
    QFETCH(int, frames);
    QFETCH(bool, fitsIntoBuffer);
    VirtualCard::Settings settings;
    settings.stallAfter = frames;
    const VirtualCard card("standing", settings);
    const media::Pcm few = media::noise(media::SampleFormat::S16, 48000, 2, 4800);
    SourcedPlayer player(source, fitsIntoBuffer ? media::wavBytes(few) : item, card.device());
    playUntilItStands(player, card, frames);
    QElapsedTimer sinceDestruction;
    sinceDestruction.start();
    QCOMPARE(player.probe.destroy(), QStringList());
    tellMeasured({"destroyed"}, sinceDestruction);
    QVERIFY(card.has("close"));
    QCOMPARE(flawOfNextPlayer(source), QString());
}

KOVA_TEST(TestCardFaults)
#include "tst_cardfaults.moc"
