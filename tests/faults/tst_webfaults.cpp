#include "faults/Sources.h"

#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtTest/QtTest>

using Then = ScriptedServer::Then;

Q_DECLARE_METATYPE(ScriptedServer::Then)

/// Web servers that fall silent, break off or answer rubbish.
class TestWebFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void badAnswerIsReported_data();
    void badAnswerIsReported();
    void connectionThatBreaksOffIsReported_data();
    void connectionThatBreaksOffIsReported();

    void silentServerCanBeStopped_data();
    void silentServerCanBeStopped();
    void silentServerLetsThePlayerGo_data();
    void silentServerLetsThePlayerGo();

private:
    media::Pcm sound;
    QByteArray item; ///< one second of `sound`
};

void TestWebFaults::initTestCase()
{
    sound = media::noise(media::SampleFormat::S16, 48000, 2, 48000);
    item = media::wavBytes(sound);
}

void TestWebFaults::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

static QByteArray status(const char* line, const QByteArray& headers = QByteArray())
{
    return QByteArray("HTTP/1.1 ") + line + "\r\nContent-Length: 0\r\n" + headers + "\r\n";
}

/// Plays from a server to the outcome.
static QStringList play(const ScriptedServer& server, const VirtualCard& card)
{
    PlayerProbe probe(new UriSimplePlayer(server.url(), "token", card.device()));
    QElapsedTimer sinceStart;
    sinceStart.start();
    probe->startPlayback();
    const QStringList outcomes = probe.finish();
    tellMeasured(outcomes, sinceStart);
    return outcomes;
}

// ---- Answers -----------------------------------------------------------------------------------

void TestWebFaults::badAnswerIsReported_data()
{
    QTest::addColumn<QByteArray>("answer");
    // libsoup 2 and 3 have different words for what is no HTTP.
    const QString noHttp("Server sent bad data\\.|Internal data stream error\\.");
    QTest::addColumn<QString>("reason");
    QTest::newRow("404") << status("404 Not Found") << "Not Found";
    QTest::newRow("403") << status("403 Forbidden") << "Forbidden";
    QTest::newRow("500") << status("500 Internal Server Error") << "Internal Server Error";
    QTest::newRow("redirected for ever")
        << status("302 Found", "Location: /item\r\nConnection: close\r\n")
        << "Found|Internal data stream error\\.";
    QTest::newRow("redirected to nowhere") << status("302 Found") << "Found";
    QTest::newRow("nothing at all") << QByteArray() << noHttp;
    QTest::newRow("rubbish") << QByteArray("\0\1\2rubbish\r\n\r\n", 14) << noHttp;
    QTest::newRow("half a status line") << QByteArray("HTTP/1.1 2") << noHttp;
    QTest::newRow("half the headers") << QByteArray("HTTP/1.1 200 OK\r\nContent-Le") << noHttp;
    QTest::newRow("no body") << httpHeaders(0) << "Stream doesn't contain enough data\\.";
    QTest::newRow("announced and not sent") << httpHeaders(100000) << noHttp;
    QTest::newRow("rubbish for a body")
        << httpHeaders(65536) + QByteArray(65536, '\0') << "Could not determine type of stream\\.";
}

void TestWebFaults::badAnswerIsReported()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, reason);
    const VirtualCard card("web");
    {
        const ScriptedServer server(answer, Then::Close);
        const QStringList outcomes = play(server, card);
        QCOMPARE(outcomes.size(), 1);
        const QRegularExpression expected("^error token: (" + reason + ")$");
        QVERIFY2(expected.match(outcomes.first()).hasMatch(), qPrintable(outcomes.first()));
    }
    QCOMPARE(card.frames(), qint64(0));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

void TestWebFaults::connectionThatBreaksOffIsReported_data()
{
    QTest::addColumn<Then>("then");
    QTest::addColumn<int>("sent");
    for (const int sent : {0, 20, 44, 4096, 96000}) {
        QTest::addRow("closed after %d bytes", sent) << Then::Close << sent;
        QTest::addRow("reset after %d bytes", sent) << Then::Reset << sent;
    }
}

void TestWebFaults::connectionThatBreaksOffIsReported()
{
    QFETCH(Then, then);
    QFETCH(int, sent);
    const VirtualCard card("web");
    const ScriptedServer server(httpHeaders(item.size()) + item.left(sent), then);
    const QStringList outcomes = play(server, card);
    QCOMPARE(outcomes.size(), 1);
    QVERIFY2(outcomes.first().startsWith("error token: "), qPrintable(outcomes.first()));
    QVERIFY(
        sound.samples.startsWith(media::withoutTrailingSilence(card.samples(), sound.frameSize())));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

// ---- Silence -----------------------------------------------------------------------------------

/// Rows of what a server sends before it falls silent, and whether that is heard.
static void addSilentServers(const QByteArray& item)
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("isHeard");
    const QByteArray whole = httpHeaders(item.size()) + item;
    QTest::newRow("nothing") << QByteArray() << false;
    QTest::newRow("half a status line") << whole.left(10) << false;
    QTest::newRow("half the headers") << whole.left(40) << false;
    QTest::newRow("the headers") << httpHeaders(item.size()) << false;
    QTest::newRow("half the header of the file") << whole.left(whole.indexOf("RIFF") + 20) << false;
    QTest::newRow("half the body") << whole.left(whole.size() / 2) << true;
}

/// Plays until the server has fallen silent.
static void playUntilSilence(PlayerProbe& probe, const ScriptedServer& server,
                             const VirtualCard& card, bool isHeard)
{
    QVERIFY(probe->startPlayback());
    QVERIFY(waitFor([&server] { return server.answers() > 0; }));
    QVERIFY(!isHeard || waitFor([&card] { return card.frames() > 0; }));
    deliverQueuedEvents();
    QCOMPARE(probe.outcomes.all, QStringList());
}

void TestWebFaults::silentServerCanBeStopped_data()
{
    addSilentServers(item);
}

void TestWebFaults::silentServerCanBeStopped()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, isHeard);
    const VirtualCard card("web");
    const ScriptedServer server(answer, Then::Hold);
    PlayerProbe probe(new UriSimplePlayer(server.url(), "token", card.device()));
    playUntilSilence(probe, server, card, isHeard);
    QElapsedTimer sinceStop;
    sinceStop.start();
    QVERIFY(probe->stopPlayback());
    const QStringList outcomes = probe.finish();
    tellMeasured(outcomes, sinceStop);
    QCOMPARE(outcomes, QStringList("stopped token"));
    QVERIFY(
        sound.samples.startsWith(media::withoutTrailingSilence(card.samples(), sound.frameSize())));
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

void TestWebFaults::silentServerLetsThePlayerGo_data()
{
    addSilentServers(item);
}

void TestWebFaults::silentServerLetsThePlayerGo()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, isHeard);
    const VirtualCard card("web");
    const ScriptedServer server(answer, Then::Hold);
    PlayerProbe probe(new UriSimplePlayer(server.url(), "token", card.device()));
    playUntilSilence(probe, server, card, isHeard);
    QElapsedTimer sinceDestruction;
    sinceDestruction.start();
    QCOMPARE(probe.destroy(), QStringList());
    tellMeasured({"destroyed"}, sinceDestruction);
    QCOMPARE(flawOfNextPlayer(Source::Uri), QString());
}

KOVA_TEST(TestWebFaults)
#include "tst_webfaults.moc"
