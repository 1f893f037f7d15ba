#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <simplePlayer/UriSimplePlayer.h>

#include <QtTest/QtTest>

using Way = HttpServer::Way;

Q_DECLARE_METATYPE(HttpServer::Way)

/// Playing from a web server on loopback.
class TestWeb : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void itemArrivesBitExact_data();
    void itemArrivesBitExact();
    void namesInUrlsAreEscapedByTheClient();
    void oggNeedsRangesOrChunks_data();
    void oggNeedsRangesOrChunks();

    void failureIsReported_data();
    void failureIsReported();
    void unknownCertificateIsRefused();
    void playerDeletedWhileConnectingIsSilent();

    void loopingWithRangesPlaysAgain();
    void loopingWithoutRangesFails_data();
    void loopingWithoutRangesFails();

private:
    std::unique_ptr<HttpServer> server;
    media::Pcm sound;
};

void TestWeb::initTestCase()
{
    server = std::make_unique<HttpServer>();
    sound = media::noise(48000);
    const QString wav = media::writeWav("item.wav", sound);
    media::writeWav("an item.wav", sound);
    media::encode("item.flac", wav);
    media::encode("item.ogg", wav);
}

void TestWeb::cleanup()
{
    QCOMPARE(leakedGstObjects(), QString());
}

void TestWeb::cleanupTestCase()
{
    server.reset();
}

// ---- Ways to serve -----------------------------------------------------------------------------

void TestWeb::itemArrivesBitExact_data()
{
    QTest::addColumn<Way>("way");
    QTest::addColumn<QString>("name");

    for (const char* name : {"item.wav", "item.flac"}) {
        QTest::addRow("plain %s", name) << Way::Plain << QString(name);
        QTest::addRow("no ranges %s", name) << Way::NoRanges << QString(name);
        QTest::addRow("chunked %s", name) << Way::Chunked << QString(name);
        QTest::addRow("found elsewhere %s", name) << Way::Found << QString(name);
        QTest::addRow("moved %s", name) << Way::Moved << QString(name);
    }
}

void TestWeb::itemArrivesBitExact()
{
    QFETCH(Way, way);
    QFETCH(QString, name);
    VirtualCard card("web");
    PlayerProbe probe(new UriSimplePlayer(server->url(name, way), "token", card.device()));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList("ended token"));
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

void TestWeb::namesInUrlsAreEscapedByTheClient()
{
    VirtualCard card("web");
    PlayerProbe probe(new UriSimplePlayer(server->url("an%20item.wav"), "token", card.device()));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList("ended token"));
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

void TestWeb::oggNeedsRangesOrChunks_data()
{
    QTest::addColumn<Way>("way");
    QTest::addColumn<QString>("outcome");

    QTest::newRow("plain") << Way::Plain << "ended token";
    QTest::newRow("chunked") << Way::Chunked << "ended token";
    // With a length but no ranges the demuxer tries to look at the end first, and cannot go back.
    QTest::newRow("no ranges") << Way::NoRanges << "error token: Server does not support seeking.";
}

void TestWeb::oggNeedsRangesOrChunks()
{
    QFETCH(Way, way);
    QFETCH(QString, outcome);
    VirtualCard card("web");
    PlayerProbe probe(new UriSimplePlayer(server->url("item.ogg", way), "token", card.device()));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList(outcome));
}

// ---- Failures ----------------------------------------------------------------------------------

void TestWeb::failureIsReported_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("reason");

    const QString notFound("Not Found");
    QTest::newRow("missing item") << server->url("missing.wav") << notFound;
    QTest::newRow("redirected to missing item")
        << server->url("missing.wav", Way::Found) << notFound;
    QTest::newRow("empty item") << server->url("empty.wav")
                                << "Stream doesn't contain enough data.";
    media::writeFile("empty.wav", QByteArray());
}

void TestWeb::failureIsReported()
{
    QFETCH(QString, url);
    QFETCH(QString, reason);
    PlayerProbe probe(new UriSimplePlayer(url, "token", "null"));
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList("error token: " + reason));
}

void TestWeb::unknownCertificateIsRefused()
{
    PlayerProbe probe(new UriSimplePlayer(server->httpsUrl("item.wav"), "token", "null"));
    QVERIFY(probe->startPlayback());
    // GStreamer finds libsoup 2.4, or 3 where a desktop is installed.
    const QString outcomes = probe.finish().join('\n');
    QVERIFY2(outcomes == "error token: Secure connection setup failed." ||
                 outcomes == "error token: Internal data stream error.",
             qPrintable(outcomes));
}

void TestWeb::playerDeletedWhileConnectingIsSilent()
{
    for (int i = 0; i < 10; ++i) {
        PlayerProbe probe(new UriSimplePlayer(server->url("item.wav"), "token", "null"));
        QVERIFY(probe->startPlayback());
        QCOMPARE(probe.destroy(), QStringList());
    }
}

// ---- Looping -----------------------------------------------------------------------------------

void TestWeb::loopingWithRangesPlaysAgain()
{
    VirtualCard card("web");
    PlayerProbe probe(new UriSimplePlayer(server->url("item.wav"), "token", card.device()));
    probe->loop = true;
    QVERIFY(probe->startPlayback());
    QVERIFY(card.waitForFrames(100000)); // the third time
    QVERIFY(probe->stopPlayback());
    QCOMPARE(probe.finish(), QStringList("stopped token"));
    QVERIFY(card.samples().startsWith(sound.samples));
}

void TestWeb::loopingWithoutRangesFails_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("WAV") << "item.wav";
    QTest::newRow("FLAC") << "item.flac";
}

void TestWeb::loopingWithoutRangesFails()
{
    QFETCH(QString, name);
    VirtualCard card("web");
    PlayerProbe probe(
        new UriSimplePlayer(server->url(name, Way::NoRanges), "token", card.device()));
    probe->loop = true;
    QVERIFY(probe->startPlayback());
    QCOMPARE(probe.finish(), QStringList("error token: Server does not support seeking."));
    QCOMPARE(media::difference(card.samples(), sound.samples), QString());
}

KOVA_TEST(TestWeb)
#include "tst_web.moc"
