#include "Program.h"

#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QDir>
#include <QtTest/QtTest>

class TestCheck : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void listDevicesShowsWhatCanPlay();
    void listDevicesIsEmptyWithoutConfiguration();
    void checkFindsNothingMissing();
    void checkNamesPackageOfMissingElement();
    void checkFailsOnDeviceThatDoesNotOpen_data();
    void checkFailsOnDeviceThatDoesNotOpen();
    void checkTellsWhatCanBeDoneAboutDevice_data();
    void checkTellsWhatCanBeDoneAboutDevice();
    void checkFailsWithoutGLib();
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
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ok      Qt on GLib's event dispatcher\n"
                                     "ok      GStreamer\n"
                                     "ok      element uridecodebin\n"
                                     "ok      element decodebin\n"
                                     "ok      element appsrc\n"
                                     "ok      element identity\n"
                                     "ok      element queue\n"
                                     "ok      element audioconvert\n"
                                     "ok      element audioresample\n"
                                     "ok      element alsasink\n"
                                     "ok      device card\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.has("open"));
}

void TestCheck::checkNamesPackageOfMissingElement()
{
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device()});
    hidePlugin(program, "libgstalsa.so");
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out.count("ok  "), 10);
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
                                           "there is no such device: kova-play --list-devices");
    QTest::newRow("refusing") << "card" << QByteArray("FAILED  device card: ");
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
    QCOMPARE(program.out.count("ok  "), 10);
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

KOVA_TEST(TestCheck)
#include "tst_check.moc"
