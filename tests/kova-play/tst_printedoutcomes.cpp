#include "Program.h"

#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <csignal>

#include <sys/stat.h>

class TestPrintedOutcomes : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void itemsPlayInOrder();
    void deviceIsFreeBeforeTheNextItemBegins();
    void itemsPlayAtOnce();
    void webItemIsPlayed();
    void fileOfAnyNamePlays_data();
    void fileOfAnyNamePlays();
    void fileInAFolderOfAnyNamePlays();
    void failedItemDoesNotKeepTheNextFromPlaying();
    void failureHasReasonAndHint_data();
    void failureHasReasonAndHint();
    void itemThatMayNotBeReadFails_data();
    void itemThatMayNotBeReadFails();
    void deviceThatRefusesFailsItem();
    void deviceThatVanishesFailsItem();
    void missingElementFailsItem_data();
    void missingElementFailsItem();
    void itemsFailWithoutGLib();
    void outcomeIsOneLineWhateverTheName();
    void tokens_data();
    void tokens();
    void fakeItemsStopAtOnce();
};

void TestPrintedOutcomes::itemsPlayInOrder()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "one.wav", two});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\nended two.wav\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.samples().startsWith(samplesOfOne));
    QVERIFY(card.samples().indexOf(samplesOfTwo) >= samplesOfOne.size());
}

void TestPrintedOutcomes::deviceIsFreeBeforeTheNextItemBegins()
{
    const VirtualCard card("card");
    Program program({"--device", card.device(), one, two});
    QCOMPARE(program.finish(), 0);
    QStringList events;
    for (const QString& event : card.eventNames()) {
        if (event == "open" || event == "close") {
            events << event;
        }
    }
    QCOMPARE(events, QStringList({"open", "close", "open", "close"}));
}

void TestPrintedOutcomes::itemsPlayAtOnce()
{
    const VirtualCard card("card"); // for its configuration: "null" can be opened many times
    Program program({"-v", "-d", "null", "--at-once", "--loop", one, two});
    program.begin();
    QVERIFY(waitFor([&] {
        return program.err.contains(
                   "Leave SimplePlayer SimplePlayerImpl::startPlayback: token: one.wav") &&
               program.err.contains(
                   "Leave SimplePlayer SimplePlayerImpl::startPlayback: token: two.wav");
    }));
    QCOMPARE(program.out, QByteArray());
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped one.wav\nstopped two.wav\n"));
}

void TestPrintedOutcomes::webItemIsPlayed()
{
    const VirtualCard card("card");
    const HttpServer server;
    Program program({"-d", card.device(), server.url("one.wav")});
    // GStreamer's HTTP source leaves a few bytes behind, which would fail the program here.
    program.set("ASAN_OPTIONS", "detect_leaks=0");
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestPrintedOutcomes::fileOfAnyNamePlays_data()
{
    QTest::addColumn<QString>("name"); // for printf of the shell
    QTest::addColumn<QString>("option");
    QTest::addColumn<QByteArray>("shown");
    for (const char* option : {"", "--data"}) {
        const auto row = [option](const char* what, const char* name, const QByteArray& shown) {
            QTest::addRow("%s %s", what, option) << name << option << shown;
        };
        row("letters", "Gr\\303\\274\\303\\237e.wav",
            localeIsC() ? "Gr??e.wav" : "Gr\303\274\303\237e.wav");
        row("hash", "so#nd.wav", "so#nd.wav");
        row("percent", "100%%.wav", "100%.wav");
        row("percent escape", "%%41.wav", "%41.wav");
        row("question mark", "so?nd.wav", "so?nd.wav");
        row("no text", "so\\344nd.wav", "so?nd.wav");
        row("no text, no other", "so\\366nd#.wav", "so?nd#.wav");
    }
}

void TestPrintedOutcomes::fileOfAnyNamePlays()
{
    QFETCH(QString, name);
    QFETCH(QString, option);
    QFETCH(QByteArray, shown);
    const VirtualCard card("card");
    // A shell names the file, byte by byte.
    Program program({});
    program.setProgram("bash");
    program.setArguments({"-c",
                          "name=$(printf \"$2\"); cp one.wav \"$name\"; "
                          "exec \"$0\" -d \"$1\" $3 \"$name\"",
                          kovaPlay(), card.device(), name, option});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, "ended " + shown + '\n');
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestPrintedOutcomes::fileInAFolderOfAnyNamePlays()
{
    const VirtualCard card("card");
    QDir().mkpath(TestProcess::path("#1"));
    QFile::copy(one, TestProcess::path("#1/one.wav"));
    Program named({"-d", card.device(), "file://" + TestProcess::path("#1/one.wav")});
    QCOMPARE(named.finish(), 0);
    Program current({"-d", card.device(), "one.wav"});
    current.setWorkingDirectory(TestProcess::path("#1"));
    QCOMPARE(current.finish(), 0);
    QCOMPARE(card.samples().count(samplesOfOne), 2);
}

void TestPrintedOutcomes::failedItemDoesNotKeepTheNextFromPlaying()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "nothing.wav", one});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error nothing.wav: file does not exist\nended one.wav\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestPrintedOutcomes::failureHasReasonAndHint_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("hint");

    QTest::newRow("missing file") << "nothing.wav"
                                  << QByteArray("error nothing.wav: file does not exist\n")
                                  << QByteArray("'nothing.wav' does not exist");
    QTest::newRow("missing URI") << "file:///nothing.wav"
                                 << QByteArray("error nothing.wav: file does not exist\n")
                                 << QByteArray("'/nothing.wav' does not exist");
    QTest::newRow("upper case scheme")
        << "HTTP://localhost/x.wav" << QByteArray("error x.wav: file does not exist\n")
        << QByteArray("in lower case");
    QTest::newRow("percent escape")
        << "%6fne.wav" << QByteArray("error %6fne.wav: file does not exist\n")
        << QByteArray("percent escapes are not decoded");
    QTest::newRow("percent escape of nothing")
        << "%6fther.wav" << QByteArray("error %6fther.wav: file does not exist\n")
        << QByteArray("'%6fther.wav' does not exist");
    QTest::newRow("named pipe") << "plain.fifo"
                                << QByteArray("error plain.fifo: it is a named pipe\n")
                                << QByteArray("use --pipe 'plain.fifo'\n");
    QTest::newRow("folder") << "folder"
                            << QByteArray("error folder: the folder holds no audio files\n")
                            << QByteArray("folders in the folder are not looked into");
    QTest::newRow("not audio") << "text.txt" << QByteArray("error text.txt: ")
                               << QByteArray("run again with -v");
}

void TestPrintedOutcomes::failureHasReasonAndHint()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, hint);

    const VirtualCard card("card");
    QDir().mkpath(TestProcess::path("folder"));
    media::writeFile("text.txt", "This is no music, whatever it may sound like.\n");
    mkfifo(TestProcess::path("plain.fifo").toLocal8Bit(), 0600);
    Program program({"-d", card.device(), item});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.contains(out), program.out);
    QCOMPARE(program.out.count('\n'), 1);
    QVERIFY2(program.err.contains("kova-play: ") && program.err.contains(hint), program.err);
}

void TestPrintedOutcomes::itemThatMayNotBeReadFails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::newRow("file") << QStringList{"locked.wav"} << QByteArray("error locked.wav: ");
    QTest::newRow("pipe") << QStringList{"--pipe", "locked.fifo"}
                          << QByteArray("error locked.fifo: the pipe cannot be read\n");
}

void TestPrintedOutcomes::itemThatMayNotBeReadFails()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, out);
    QFile(media::writeFile("locked.wav", "")).setPermissions(QFile::Permissions());
    ::mkfifo(TestProcess::path("locked.fifo").toLocal8Bit(), 0);
    Program program(QStringList{"-d", "null"} + arguments);
    bindToPermissions(program);
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith(out), program.out);
    QVERIFY2(program.err.contains("look at the permissions of '" + arguments.last().toUtf8()),
             program.err);
}

void TestPrintedOutcomes::deviceThatRefusesFailsItem()
{
    VirtualCard::Settings settings;
    settings.refuse = "open";
    const VirtualCard card("card", settings);
    Program program({"-d", card.device(), one});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith("error one.wav: Could not open audio device for playback."),
             program.out);
    QCOMPARE(program.out.count('\n'), 1);
    QVERIFY(program.err.contains("kova-play --check --device 'card'"));
}

void TestPrintedOutcomes::deviceThatVanishesFailsItem()
{
    VirtualCard::Settings settings;
    settings.vanishAfter = 4800;
    const VirtualCard card("card", settings);
    Program program({"-d", card.device(), one});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith("error one.wav: "), program.out);
    QCOMPARE(program.out.count('\n'), 1);
}

void TestPrintedOutcomes::missingElementFailsItem_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("file") << QStringList{"one.wav"};
    QTest::newRow("web") << QStringList{"http://localhost/one.wav"};
    QTest::newRow("secure web") << QStringList{"https://localhost/one.wav"};
    QTest::newRow("memory") << QStringList{"--data", "one.wav"};
}

void TestPrintedOutcomes::missingElementFailsItem()
{
    QFETCH(QStringList, arguments);
    const VirtualCard card("card");
    Program program(QStringList{"-d", card.device()} + arguments);
    hidePlugin(program, "libgstalsa.so");
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error one.wav: missing element alsasink\n"));
    QCOMPARE(program.err, QByteArray("kova-play: apt-get install gstreamer1.0-alsa\n"));
}

void TestPrintedOutcomes::itemsFailWithoutGLib()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), one, two});
    program.set("QT_NO_GLIB", "1");
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out,
             QByteArray("error one.wav: Qt does not run on GLib's event dispatcher\n"
                        "error two.wav: Qt does not run on GLib's event dispatcher\n"));
    QVERIFY(program.err.contains("unset QT_NO_GLIB"));
    QVERIFY(!card.has("open"));
}

void TestPrintedOutcomes::outcomeIsOneLineWhateverTheName()
{
    Program program({"no\nthing\033[2J\u0085.wav"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out.count('\n'), 1);
    QVERIFY(!(program.out + program.err).contains('\033'));
}

void TestPrintedOutcomes::tokens_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");

    QTest::newRow("none") << QStringList{"a.wav"} << QByteArray("stopped a.wav\n");
    QTest::newRow("folder") << QStringList{"a/b//c/"} << QByteArray("stopped c\n");
    QTest::newRow("root") << QStringList{"/"} << QByteArray("stopped /\n");
    QTest::newRow("one") << QStringList{"-t", "X", "a"} << QByteArray("stopped X\n");
    QTest::newRow("several") << QStringList{"--token=X", "a", "b", "c"}
                             << QByteArray("stopped X-1\nstopped X-2\nstopped X-3\n");
    QTest::newRow("placeholder") << QStringList{"--token=%2", "a", "b"}
                                 << QByteArray("stopped %2-1\nstopped %2-2\n");
}

void TestPrintedOutcomes::tokens()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, out);

    Program program(QStringList{"--fake"} + arguments);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, out);
}

void TestPrintedOutcomes::fakeItemsStopAtOnce()
{
    Program program({"--fake", "a", "b"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped a\nstopped b\n"));
    QCOMPARE(program.err, QByteArray());
}

KOVA_TEST(TestPrintedOutcomes)
#include "tst_printedoutcomes.moc"
