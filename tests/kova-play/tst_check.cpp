#include "Program.h"

#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <sys/stat.h>

class TestCheck : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void listDevicesShowsWhatCanPlay();
    void listDevicesShowsTheVirtualCard();
    void listDevicesIsEmptyWithoutConfiguration();
    void checkFindsNothingMissing();
    void checkNamesPackageOfMissingElement();
    void checkFailsOnDeviceThatDoesNotOpen_data();
    void checkFailsOnDeviceThatDoesNotOpen();
    void checkTellsWhatCanBeDoneAboutDevice_data();
    void checkTellsWhatCanBeDoneAboutDevice();
    void checkFailsWithoutGLib();
    void checkNamesPackageOfMissingFormat_data();
    void checkNamesPackageOfMissingFormat();
    void checkFailsOnDeviceThatRefusesEveryFormat();
    void checkReportsWhetherTheDeviceCanPause();
    void checkDescribesTheRegistry_data();
    void checkDescribesTheRegistry();
    void checkDescribesAnItem_data();
    void checkDescribesAnItem();
    void checkDescribesAnItemThatCannotBePlayed_data();
    void checkDescribesAnItemThatCannotBePlayed();
    void checkOfASilentServerEnds();
    void checkReportsHowTheDeviceTakesAnItem();
    void checkCountsTheFormatsOfADeviceThatConverts();
};

void TestCheck::listDevicesShowsWhatCanPlay()
{
    // ALSA keeps a hint as one text; this is how the direction of a hardware device gets into it.
    const QString path = media::writeFile("hints.conf", R"(
pcm.speaker { type null hint { show on description "Loud
and clear" } }
pcm.output { type null hint { show on description "Output|IOIDOutput" } }
pcm.microphone { type null hint { show on description "Microphone|IOIDInput" } }
)");
    Program program({"--list-devices"});
    program.set("ALSA_CONFIG_PATH", path);
    QCOMPARE(program.finish(), 0);
    QVERIFY2(program.out.contains("speaker\n    Loud\n    and clear\n"), program.out);
    QVERIFY(program.out.contains("output\n    Output\n"));
    QVERIFY(!program.out.contains("microphone"));
    QCOMPARE(program.err, QByteArray());
}

void TestCheck::listDevicesShowsTheVirtualCard()
{
    const VirtualCard card("card");
    Program program({"--list-devices"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("card\n    Virtual sound card\n"));
}

void TestCheck::listDevicesIsEmptyWithoutConfiguration()
{
    Program program({"--list-devices"});
    program.set("ALSA_CONFIG_PATH", media::writeFile("broken.conf", "pcm { {\n"));
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray());
    QCOMPARE(program.err, QByteArray());
}

void TestCheck::checkFindsNothingMissing()
{
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device()});
    offerPlugins(program, pluginsOfAllFormats());
    QCOMPARE(program.finish(), 0);
    const QRegularExpression expected(
        "^ok      Qt on GLib's event dispatcher\n"
        "(ok|warning) +GStreamer 1\\.\\d+\\.\\d+.*\n"
        "ok      registry .*registry.bin: [0-9]+ plug-ins, newly written\n"
        "ok      element uridecodebin\n"
        "ok      element decodebin\n"
        "ok      element appsrc\n"
        "ok      element identity\n"
        "ok      element queue\n"
        "ok      element audioconvert\n"
        "ok      element audioresample\n"
        "ok      element alsasink\n"
        "ok      format WAV\n"
        "ok      format FLAC\n"
        "ok      format MP3\n"
        "ok      format Ogg Vorbis\n"
        "ok      format Opus\n"
        "missing format AAC/MP4: apt-get install gstreamer1.0-libav\n"
        "ok      format Matroska\n"
        "ok      format http\n"
        "ok      format https\n"
        "ok      device card: U8 S16_LE S24_LE S32_LE FLOAT_LE FLOAT64_LE S24_3LE, [0-9]+ to "
        "[0-9]+ Hz, "
        "1 to 8 channels; can pause\n$");
    QVERIFY2(expected.match(program.out).hasMatch(), program.out);
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.has("open"));
}

void TestCheck::checkNamesPackageOfMissingElement()
{
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device()});
    hidePlugin(program, "libgstalsa.so");
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out.count("FAILED"), 1);
    QVERIFY2(program.out.contains(
                 "FAILED  element alsasink: missing; apt-get install gstreamer1.0-alsa\n"),
             program.out);
}

void TestCheck::checkFailsOnDeviceThatDoesNotOpen_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("unknown") << "nothing"
                             << QByteArray("FAILED  device nothing: No such file or directory; "
                                           "there is no such device: kova-play --list-devices "
                                           "shows the names\n");
    QTest::newRow("refusing") << "card"
                              << QByteArray("FAILED  device card: Device or resource busy; another "
                                            "program uses it: end that one, or play through a "
                                            "device that mixes\n");
}

void TestCheck::checkFailsOnDeviceThatDoesNotOpen()
{
    QFETCH(QString, device);
    QFETCH(QByteArray, line);
    VirtualCard::Settings settings;
    settings.refuse = "open";
    const VirtualCard card("card", settings);
    Program program({"--check", "-d", device});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.contains(line), program.out);
    QCOMPARE(program.out.count("FAILED"), 1);
    QCOMPARE(program.err, QByteArray()); // ALSA's own messages are kept away
}

void TestCheck::checkTellsWhatCanBeDoneAboutDevice_data()
{
    QTest::addColumn<QString>("events"); // the file or folder in the way of the card
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("not allowed") << "locked.events"
                                 << QByteArray("FAILED  device card: Permission denied; this user "
                                               "may not use it: join the group 'audio'\n");
    QTest::newRow("other") << "folder"
                           << QByteArray("FAILED  device card: Is a directory; kova-play "
                                         "--list-devices shows what else there is\n");
}

void TestCheck::checkTellsWhatCanBeDoneAboutDevice()
{
    QFETCH(QString, events);
    QFETCH(QByteArray, line);
    const VirtualCard card("card");
    QDir().mkpath(TestProcess::path("folder"));
    QFile(media::writeFile("locked.events", "")).setPermissions(QFile::Permissions());
    QByteArray configuration = media::readFile(qEnvironmentVariable("ALSA_CONFIG_PATH"));
    configuration.replace("card-card.events", events.toUtf8());
    Program program({"--check", "-d", card.device()});
    program.set("ALSA_CONFIG_PATH", media::writeFile("other.conf", configuration));
    bindToPermissions(program);
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.endsWith(line), program.out + program.err);
}

void TestCheck::checkFailsWithoutGLib()
{
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device()});
    program.set("QT_NO_GLIB", "1");
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith("FAILED  Qt on GLib's event dispatcher: unset QT_NO_GLIB\n"),
             program.out);
}

void TestCheck::checkNamesPackageOfMissingFormat_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QByteArray>("lines");
    QTest::newRow("WAV") << "wavparse"
                         << QByteArray("missing format WAV: apt-get install "
                                       "gstreamer1.0-plugins-good\n");
    QTest::newRow("FLAC") << "flac"
                          << QByteArray("missing format FLAC: apt-get install "
                                        "gstreamer1.0-plugins-good\n");
    QTest::newRow("MP3") << "mpg123"
                         << QByteArray("missing format MP3: apt-get install "
                                       "gstreamer1.0-plugins-good\n");
    QTest::newRow("Ogg") << "ogg"
                         << QByteArray("missing format Ogg Vorbis: apt-get install "
                                       "gstreamer1.0-plugins-base\n"
                                       "missing format Opus: apt-get install "
                                       "gstreamer1.0-plugins-base\n");
    QTest::newRow("MP4") << "isomp4"
                         << QByteArray("missing format AAC/MP4: apt-get install "
                                       "gstreamer1.0-plugins-good gstreamer1.0-libav\n");
    QTest::newRow("Matroska") << "matroska"
                              << QByteArray("missing format Matroska: apt-get install "
                                            "gstreamer1.0-plugins-good\n");
    QTest::newRow("web") << "soup"
                         << QByteArray("missing format http: apt-get install "
                                       "gstreamer1.0-plugins-good\n"
                                       "missing format https: apt-get install "
                                       "gstreamer1.0-plugins-good\n");
}

void TestCheck::checkNamesPackageOfMissingFormat()
{
    QFETCH(QString, plugin);
    QFETCH(QByteArray, lines);
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device()});
    QStringList plugins = pluginsOfAllFormats();
    QVERIFY(plugins.removeOne(plugin));
    offerPlugins(program, plugins);
    QCOMPARE(program.finish(), 0); // players that need other formats only play
    QVERIFY2(program.out.contains(lines), program.out);
}

void TestCheck::checkFailsOnDeviceThatRefusesEveryFormat()
{
    VirtualCard::Settings settings;
    settings.refuse = "format";
    const VirtualCard card("card", settings);
    Program program({"--check", "-d", card.device()});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.contains("FAILED  device card: refuses every format (Invalid argument); "
                                  "it lists U8 S16_LE S24_LE S32_LE FLOAT_LE FLOAT64_LE S24_3LE, "),
             program.out);
}

void TestCheck::checkReportsWhetherTheDeviceCanPause()
{
    VirtualCard::Settings settings;
    settings.canPause = false;
    const VirtualCard card("card", settings);
    Program program({"--check", "-d", card.device()});
    QCOMPARE(program.finish(), 0);
    QVERIFY2(program.out.contains("; cannot pause\n"), program.out);
}

// ---- The registry ------------------------------------------------------------------------------

void TestCheck::checkDescribesTheRegistry_data()
{
    QTest::addColumn<QString>("command"); // of a shell in the folder of the registry
    QTest::addColumn<QString>("path");    // of the registry; counts from its folder
    QTest::addColumn<bool>("costs");      // whether each start scans
    QTest::addColumn<QByteArray>("state");
    const auto row = [](const char* name, const char* command, const char* path, bool costs,
                        const QByteArray& state) {
        QTest::newRow(name) << command << path << costs << state;
    };
    row("fresh", ":", "registry.bin", false, "fresh, writable");
    row("fresh in a locked folder", "chmod a-w .", "registry.bin", false, "fresh, not writable");
    row("out of date", "rm libgstwavparse.so", "registry.bin", false,
        "was out of date, written anew");
    row("missing", "rm registry.bin", "registry.bin", false, "newly written");
    // GStreamer unlocks a folder that its user owns. These are closed to each user, also to root.
    row("missing for ever", ":", "registry.bin/none", true, "not found and not writable");
    row("unreadable", "rm registry.bin; mkdir registry.bin", "registry.bin", true, "not readable");
    row("out of date for ever", "rm libgstwavparse.so", "/proc/self/fd/0", true,
        "out of date and not writable");
}

void TestCheck::checkDescribesTheRegistry()
{
    QFETCH(QString, command);
    QFETCH(QString, path);
    QFETCH(bool, costs);
    QFETCH(QByteArray, state);
    const VirtualCard card("card");
    Program first({"--check", "-d", card.device()});
    offerPlugins(first, {"wavparse"});
    QCOMPARE(first.finish(), 0);
    const QProcessEnvironment environment = first.processEnvironment();
    const QString folder = environment.value("GST_PLUGIN_SYSTEM_PATH_1_0");
    QCOMPARE(QProcess::execute("sh", {"-c", "cd \"$0\" && " + command, folder}), 0);

    const QString registry = QDir(folder).filePath(path);
    Program program({"--check", "-d", card.device()});
    bindToPermissions(program);
    program.setProcessEnvironment(environment);
    program.set("GST_REGISTRY", registry);
    if (registry == path) { // by the descriptor of standard input
        program.setStandardInputFile(environment.value("GST_REGISTRY"));
    }
    const int status = program.finish();
    QFile(folder).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QCOMPARE(status, 0);
    QVERIFY2(program.out.contains((costs ? "warning registry " : "ok      registry ") +
                                  registry.toUtf8() + ": "),
             program.out);
    const QByteArray advice(": each start scans all plug-ins; set GST_REGISTRY to a file that can "
                            "be written, or make one with kova-registry");
    QVERIFY2(program.out.contains(" plug-ins, " + state + (costs ? advice : QByteArray()) + '\n'),
             program.out);
}

// ---- Items -------------------------------------------------------------------------------------

void TestCheck::checkDescribesAnItem_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QByteArray>("lines");
    const QString tone = media::writeWav("tone.wav", media::tone(44100, 1, 44100));
    QTest::newRow("WAV") << "one.wav"
                         << QByteArray("ok      item one.wav: WAV, Uncompressed 16-bit PCM audio\n"
                                       "        elements: filesrc, wavparse\n"
                                       "        sound: 48000 Hz stereo S16LE; "
                                       "the device takes it as it is\n");
    QTest::newRow("URI") << "file://" + tone
                         << QByteArray("        sound: 44100 Hz mono S16LE; "
                                       "the device takes it as it is\n");
    QTest::newRow("Ogg") << media::encode("tone.ogg", tone)
                         << QByteArray("        elements: filesrc, oggdemux, vorbisdec\n");
    QTest::newRow("MP3") << media::encode("tone.mp3", tone) << QByteArray("MPEG-1 Layer 3");
    QFile::copy(one, TestProcess::path("so#nd.wav"));
    QTest::newRow("hash in its name") << "so#nd.wav" << QByteArray("ok      item so#nd.wav: WAV, ");
    QTest::newRow("entry of a playlist")
        << media::writeFile("list.m3u", "one.wav\n") << QByteArray("/one.wav: WAV, Uncompressed");
}

void TestCheck::checkDescribesAnItem()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, lines);
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device(), item});
    QCOMPARE(program.finish(), 0);
    QVERIFY2(program.out.contains(lines), program.out);
}

void TestCheck::checkDescribesAnItemThatCannotBePlayed_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QByteArray>("line");
    const QString tone = media::writeWav("tone.wav", media::tone(44100, 1, 44100));
    QTest::newRow("missing file") << "nothing.wav"
                                  << QByteArray("FAILED  item nothing.wav: file does not exist; "
                                                "'nothing.wav' does not exist: look at the "
                                                "spelling; relative paths count from the current "
                                                "folder\n");
    mkfifo(TestProcess::path("plain.fifo").toLocal8Bit(), 0600);
    QTest::newRow("named pipe") << "plain.fifo"
                                << QByteArray("FAILED  item plain.fifo: it is a named pipe; "
                                              "use --pipe 'plain.fifo'\n");
    QDir().mkpath(TestProcess::path("folder"));
    QTest::newRow("empty folder") << "folder"
                                  << QByteArray("FAILED  item folder: the folder holds no audio "
                                                "files; folders in the folder are not looked "
                                                "into\n");
    QTest::newRow("missing decoder")
        << media::encode("tone.opus", tone)
        << QByteArray("missing plug-in: Opus decoder; apt-get install gstreamer1.0-plugins-base\n");
    QTest::newRow("missing demuxer") << media::encode("tone.flac", tone)
                                     << QByteArray("apt-get install gstreamer1.0-plugins-good\n");
    QTest::newRow("missing source")
        << "http://localhost/tone.wav"
        << QByteArray("FAILED  item http://localhost/tone.wav: missing plug-in: HTTP protocol "
                      "source; apt-get install gstreamer1.0-plugins-good\n");
    QTest::newRow("text") << media::writeFile("text.txt", "This is no music.\n")
                          << QByteArray("text.txt: Could not determine type of stream.\n");
    QTest::newRow("silent film") << media::encodeContainer("film.mkv", "libopus", {}, true)
                                 << QByteArray("film.mkv: there is no sound in it\n");
}

void TestCheck::checkDescribesAnItemThatCannotBePlayed()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, line);
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device(), item});
    offerPlugins(program, {"wavparse", "ogg", "matroska", "vpx"});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.contains(line), program.out.mid(program.out.indexOf("  item ")));
}

void TestCheck::checkOfASilentServerEnds()
{
    const VirtualCard card("card"); // for its configuration
    const ScriptedServer server(httpHeaders(100000), ScriptedServer::Then::Hold);
    Program item({"--check", "-d", "null", server.url() + "/one.wav"});
    Program playlist({"-d", "null", server.url() + "/list.m3u"});
    item.begin();
    playlist.begin();
    QCOMPARE(item.finish(), 1);
    QVERIFY2(item.out.contains("/one.wav: nothing was decoded within 10 seconds\n"), item.out);
    QCOMPARE(playlist.finish(), 1);
    QCOMPARE(playlist.out,
             QByteArray("error list.m3u: the playlist could not be loaded: it does not arrive\n"));
}

void TestCheck::checkReportsHowTheDeviceTakesAnItem()
{
    // Behind this card, ALSA itself takes one rate only.
    const VirtualCard card("card");
    QByteArray configuration = media::readFile(qEnvironmentVariable("ALSA_CONFIG_PATH"));
    configuration += "\npcm.narrow { type linear slave { pcm card format S16_LE } }\n";
    const QString eight =
        media::writeWav("eight.wav", media::noise(media::SampleFormat::F32, 48000, 2, 4800, 1));
    Program program({"--check", "-d", "narrow", eight});
    program.set("ALSA_CONFIG_PATH", media::writeFile("narrow.conf", configuration));
    QCOMPARE(program.finish(), 0);
    QVERIFY2(program.out.contains("sound: 48000 Hz stereo F32LE; it is converted for the device"),
             program.out);
    QVERIFY2(program.out.contains("ok      device narrow: "), program.out);
    Program other({"--check", "-d", "nothing", eight});
    QCOMPARE(other.finish(), 1);
    QVERIFY2(other.out.contains("sound: 48000 Hz stereo F32LE; the device does not open\n"),
             other.out);
}

void TestCheck::checkCountsTheFormatsOfADeviceThatConverts()
{
    const VirtualCard card("card"); // for its configuration
    Program program({"--check", "-d", "null"});
    QCOMPARE(program.finish(), 0);
    const QRegularExpression line("ok      device null: \\d\\d sample formats, \\d+ to \\d+ Hz, ");
    QVERIFY2(line.match(program.out).hasMatch(), program.out);
}

KOVA_TEST(TestCheck)
#include "tst_check.moc"
