#include "conformance/Scenario.h"

#include "kit/HttpServer.h"

using Then = ScriptedServer::Then;

Q_DECLARE_METATYPE(ScriptedServer::Then)

/// Servers that cannot be reached, answer with errors, disconnect or stop answering.
class TestServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void unreachableServerIsReported_data();
    void unreachableServerIsReported();
    void badAnswerIsReported_data();
    void badAnswerIsReported();
    void lostConnectionIsReported_data();
    void lostConnectionIsReported();
    void silentServerIsLeft_data();
    void silentServerIsLeft();

private:
    media::Pcm sound;
    QByteArray file; ///< one second of `sound`
};

void TestServer::initTestCase()
{
    sound = media::noise(48000);
    file = media::wavBytes(sound);
}

/// The only source that takes URLs.
static const Source& source()
{
    return Source::uri();
}

static Item itemAt(const QString& url)
{
    Item item;
    item.file = url;
    return item;
}

/// How libsoup 2 and 3, of which GStreamer uses either, report what is no HTTP.
static const char* const noHttp = "Server sent bad data\\.|Internal data stream error\\.";

/// Plays from a URL to an error. @return how the outcome or the recording differs from what is
/// expected, and how the next player does; empty when nothing differs
static QString problemOfFailure(const QString& url, const QString& reason, const QByteArray& sent)
{
    const VirtualCard card("web");
    SourcePlayer player(source(), itemAt(url), card.device());
    player.start();
    const QString outcomes = player.finish().join('\n');
    if (!QRegularExpression("^error token: (" + reason + ")$").match(outcomes).hasMatch()) {
        return outcomes;
    }
    if (!sent.startsWith(media::withoutTrailingSilence(card.samples(), 4))) {
        return QStringLiteral("other samples were recorded than sent");
    }
    return problemOfNextPlayer(source());
}

// ---- Answers -----------------------------------------------------------------------------------

void TestServer::unreachableServerIsReported_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("reason");
    const QString unresolved("Could not resolve server name\\.|");
    QTest::newRow("no host") << "http://" << unresolved + "Error parsing URL\\.";
    QTest::newRow("unknown host") << "http://host.invalid/a.wav"
                                  << unresolved + "Internal data stream error\\.";
    QTest::newRow("no URL") << "http://%%%" << unresolved + "Error parsing URL\\.";
    QTest::newRow("refused connection")
        << QString() << "Could not establish connection to server\\.|Internal data stream error\\.";
}

void TestServer::unreachableServerIsReported()
{
    QFETCH(QString, url);
    QFETCH(QString, reason);
    const RefusingPort port;
    QCOMPARE(problemOfFailure(url.isEmpty() ? port.url() : url, reason, {}), QString());
}

static QByteArray status(const char* line, const QByteArray& headers = QByteArray())
{
    return QByteArray("HTTP/1.1 ") + line + "\r\nContent-Length: 0\r\n" + headers + "\r\n";
}

void TestServer::badAnswerIsReported_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("reason");
    QTest::newRow("404") << status("404 Not Found") << "Not Found";
    QTest::newRow("403") << status("403 Forbidden") << "Forbidden";
    QTest::newRow("500") << status("500 Internal Server Error") << "Internal Server Error";
    QTest::newRow("redirected for ever")
        << status("302 Found", "Location: /item\r\nConnection: close\r\n")
        << "Found|Internal data stream error\\.";
    QTest::newRow("redirected without a location") << status("302 Found") << "Found";
    QTest::newRow("no answer") << QByteArray() << noHttp;
    QTest::newRow("no HTTP") << QByteArray("\0\1\2rubbish\r\n\r\n", 14) << noHttp;
    QTest::newRow("half a status line") << QByteArray("HTTP/1.1 2") << noHttp;
    QTest::newRow("half the headers") << QByteArray("HTTP/1.1 200 OK\r\nContent-Le") << noHttp;
    QTest::newRow("no body") << httpHeaders(0) << "Stream doesn't contain enough data\\.";
    QTest::newRow("text") << httpHeaders(2500) +
                                 QByteArray("Nothing to hear in here.\n").repeated(100)
                          << "This appears to be a text file";
    QTest::newRow("announced and not sent") << httpHeaders(100000) << noHttp;
    QTest::newRow("zeros") << httpHeaders(65536) + QByteArray(65536, '\0')
                           << "Could not determine type of stream\\.";
}

void TestServer::badAnswerIsReported()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, reason);
    const ScriptedServer server(answer, Then::Close);
    QCOMPARE(problemOfFailure(server.url(), reason, {}), QString());
}

void TestServer::lostConnectionIsReported_data()
{
    QTest::addColumn<Then>("then");
    QTest::addColumn<int>("sent");
    for (const int sent : {0, 20, 44, 4096, 96000}) {
        QTest::addRow("closed after %d bytes", sent) << Then::Close << sent;
        QTest::addRow("reset after %d bytes", sent) << Then::Reset << sent;
    }
}

void TestServer::lostConnectionIsReported()
{
    QFETCH(Then, then);
    QFETCH(int, sent);
    const ScriptedServer server(httpHeaders(file.size()) + file.left(sent), then);
    QCOMPARE(problemOfFailure(server.url(), ".*", sound.samples), QString());
}

// ---- Servers that stop answering ---------------------------------------------------------------

void TestServer::silentServerIsLeft_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("isStopped");
    const QByteArray whole = httpHeaders(file.size()) + file;
    for (const bool isStopped : {true, false}) {
        const auto row = [isStopped](const char* name, const QByteArray& answer) {
            QTest::addRow("%s: %s", isStopped ? "stop" : "destroy", name) << answer << isStopped;
        };
        row("no answer", QByteArray());
        row("half a status line", whole.left(10));
        row("half the headers", whole.left(40));
        row("the headers", httpHeaders(file.size()));
        row("half the header of the file", whole.left(whole.indexOf("RIFF") + 20));
        row("half the body", whole.left(whole.size() / 2));
    }
}

void TestServer::silentServerIsLeft()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, isStopped);
    const VirtualCard card("web");
    const ScriptedServer server(answer, Then::Hold);
    SourcePlayer player(source(), itemAt(server.url()), card.device());
    QVERIFY(player.start());
    QVERIFY(waitFor([&server] { return server.answers() > 0; }));
    const bool hasSound = answer.size() > 2 * 4096;
    QVERIFY(!hasSound || card.waitForFrames(1));
    deliverQueuedEvents();
    QCOMPARE(player.outcomes(), QStringList());
    if (isStopped) {
        QVERIFY(player->stopPlayback());
        QCOMPARE(player.finish(), QStringList("stopped token"));
    } else {
        QCOMPARE(player.probe.destroy(), QStringList());
    }
    QVERIFY(sound.samples.startsWith(media::withoutTrailingSilence(card.samples(), 4)));
    QCOMPARE(problemOfNextPlayer(source()), QString());
}

KOVA_TEST(TestServer)
#include "tst_server.moc"
