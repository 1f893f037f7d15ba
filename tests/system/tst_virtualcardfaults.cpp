#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "system/CardClient.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

using media::SampleFormat;

/// Faults of the virtual sound card, and its configurations, right and wrong.
class TestVirtualCardFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void refusingCardCannotBeOpened();
    void refusingCardCannotBeConfigured_data();
    void refusingCardCannotBeConfigured();
    void vanishedCardIsGone();
    void stalledCardStandsStill();
    void secondClientFindsTheCardBusy();
    void captureIsNotOffered();
    void wrongConfigurationIsRefused_data();
    void wrongConfigurationIsRefused();
    void cardWithoutFilesPlays();
    void recordThatCannotBeMadeFailsTheSetUp();
    void filesAreNumberedBeforeTheSuffix_data();
    void filesAreNumberedBeforeTheSuffix();
    void fullDiskIsReportedOnce();
    void cardsComeAndGo();
    void generatedConfigurationWorks();
    void tenCardsPlayAtOnce();
};

// ---- Faults -----------------------------------------------------------------------------------

void TestVirtualCardFaults::refusingCardCannotBeOpened()
{
    const VirtualCard card("card", VirtualCard::Settings::refusing("open"));
    QVERIFY(!openPcm(card.device()));
    QCOMPARE(errno, EBUSY);
    QCOMPARE(card.eventNames(), QStringList("refused"));
}

void TestVirtualCardFaults::refusingCardCannotBeConfigured_data()
{
    QTest::addColumn<QString>("what");
    QTest::newRow("format") << "format";
    QTest::newRow("rate") << "rate";
}

void TestVirtualCardFaults::refusingCardCannotBeConfigured()
{
    QFETCH(QString, what);
    const VirtualCard card("card", VirtualCard::Settings::refusing(what));
    const Pcm pcm = openPcm(card.device());
    QVERIFY(pcm);
    for (const SampleFormat format :
         {SampleFormat::S16, SampleFormat::S24, SampleFormat::S32, SampleFormat::F32}) {
        for (const int rate : {8000, 44100, 48000, 192000}) {
            QCOMPARE(configure(pcm, Setup(media::noise(format, rate, 2, 1))), -EINVAL);
        }
    }
    QCOMPARE(find(card, "refused").details, what);
}

void TestVirtualCardFaults::vanishedCardIsGone()
{
    const media::Pcm sound = media::noise(20000);
    const VirtualCard card("card", VirtualCard::Settings::vanishingAfter(5000));
    {
        const Pcm pcm = openPcm(card.device());
        QCOMPARE(configure(pcm, Setup()), 0);
        const snd_pcm_sframes_t written =
            snd_pcm_writei(pcm.get(), sound.samples.constData(), 20000);
        QVERIFY(written >= 9600);
        QVERIFY(written < 20000);
        QCOMPARE(snd_pcm_writei(pcm.get(), sound.samples.constData(), 1),
                 snd_pcm_sframes_t(-ENODEV));
        QCOMPARE(snd_pcm_wait(pcm.get(), patience), -ENODEV);
        snd_pcm_sframes_t delay = 0;
        QCOMPARE(snd_pcm_delay(pcm.get(), &delay), -ENODEV);
        QCOMPARE(snd_pcm_prepare(pcm.get()), -ENODEV);
        QCOMPARE(configure(pcm, Setup()), -ENODEV);
        QCOMPARE(card.eventNames().count("configure"), 1);
        QVERIFY(snd_pcm_drain(pcm.get()) < 0);

        pollfd descriptor{};
        unsigned short events = 0;
        QCOMPARE(snd_pcm_poll_descriptors(pcm.get(), &descriptor, 1), 1);
        QCOMPARE(::poll(&descriptor, 1, patience), 1);
        QCOMPARE(snd_pcm_poll_descriptors_revents(pcm.get(), &descriptor, 1, &events), 0);
        QVERIFY(events & POLLERR);
    }
    QVERIFY(card.samples() == sound.samples.left(4 * 5000));
    QVERIFY(card.has("vanished"));
    QVERIFY(!openPcm(card.device()));
    QCOMPARE(errno, ENODEV);
}

void TestVirtualCardFaults::stalledCardStandsStill()
{
    const media::Pcm sound = media::noise(9600);
    const VirtualCard card("card", VirtualCard::Settings::stallingAfter(5000));
    const Pcm pcm = openPcm(card.device(), SND_PCM_NONBLOCK);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, sound.samples)); // a full buffer starts
    QTRY_COMPARE_WITH_TIMEOUT(snd_pcm_avail_update(pcm.get()), 5000, patience);
    QVERIFY(writeAll(pcm, sound.samples.left(4 * 5000)));
    QCOMPARE(snd_pcm_writei(pcm.get(), sound.samples.constData(), 1), snd_pcm_sframes_t(-EAGAIN));
    QCOMPARE(snd_pcm_wait(pcm.get(), 20), 0);
    snd_pcm_sframes_t delay = 0;
    QCOMPARE(snd_pcm_delay(pcm.get(), &delay), 0);
    QCOMPARE(delay, snd_pcm_sframes_t(9600));
    QCOMPARE(snd_pcm_state(pcm.get()), SND_PCM_STATE_RUNNING);
    QVERIFY(card.samples() == sound.samples.left(4 * 5000));
}

void TestVirtualCardFaults::secondClientFindsTheCardBusy()
{
    const VirtualCard card("card");
    {
        const Pcm first = openPcm(card.device());
        QVERIFY(first);
        QVERIFY(!openPcm(card.device()));
        QCOMPARE(errno, EBUSY);
    }
    QVERIFY(openPcm(card.device()));
}

void TestVirtualCardFaults::captureIsNotOffered()
{
    const VirtualCard card("card");
    snd_pcm_t* pcm = nullptr;
    QCOMPARE(snd_pcm_open(&pcm, qPrintable(card.device()), SND_PCM_STREAM_CAPTURE, 0), -ENOENT);
}

// ---- Configurations ---------------------------------------------------------------------------

void TestVirtualCardFaults::wrongConfigurationIsRefused_data()
{
    QTest::addColumn<QString>("line");
    for (const char* line :
         {"colour blue", "speed 0", "speed -1", "speed fast", "speed nan", "speed inf",
          "pause maybe", "refuse all", "refuse 1", "starve never", "vanish_after -1",
          "vanish_after 1.5", "stall_after soon", "record 1", "record \"\"", "events { a b }",
          "starve 1", "record \"/nonexistent/folder/x.wav\"", "events \"/nonexistent/folder/x\""}) {
        QTest::newRow(line) << QString(line);
    }
}

/// What ALSA's error report said, and how often.
static QStringList alsaErrors;

// ALSA's handler is a C function with a variable number of arguments.
// NOLINTNEXTLINE(cert-dcl50-cpp)
static void keepAlsaError(const char* /*file*/, int /*line*/, const char* /*function*/,
                          int /*error*/, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    alsaErrors << QString::vasprintf(format, arguments);
    va_end(arguments);
}

/// Opens a card that has these fields and no others.
/// @return 0 or ALSA's error
static int openWithFields(const QString& fields, Pcm& pcm)
{
    const VirtualCard card("card"); // makes the plug-in known
    const QByteArray text = QStringLiteral("pcm.own { type virtualcard\n%1 }").arg(fields).toUtf8();
    snd_config_t* top = nullptr;
    snd_config_t* configuration = nullptr;
    snd_input_t* input = nullptr;
    if (snd_config_update_ref(&top) < 0 || snd_config_copy(&configuration, top) < 0 ||
        snd_input_buffer_open(&input, text.constData(), text.size()) < 0 ||
        snd_config_load(configuration, input) < 0) {
        qFatal("no configuration: %s", text.constData());
    }
    snd_config_unref(top);
    snd_input_close(input);
    snd_pcm_t* opened = nullptr;
    const int error = snd_pcm_open_lconf(&opened, "own", SND_PCM_STREAM_PLAYBACK, 0, configuration);
    snd_config_delete(configuration);
    pcm.reset(opened);
    return error;
}

/// Keeps what ALSA has to say while it lives.
class AlsaErrors
{
public:
    AlsaErrors()
    {
        alsaErrors.clear();
        snd_lib_error_set_handler(keepAlsaError);
    }
    ~AlsaErrors() { snd_lib_error_set_handler(nullptr); }
    AlsaErrors(const AlsaErrors&) = delete;
    AlsaErrors& operator=(const AlsaErrors&) = delete;
};

void TestVirtualCardFaults::wrongConfigurationIsRefused()
{
    QFETCH(QString, line);
    const AlsaErrors keep;
    Pcm pcm;
    const int error = openWithFields(line, pcm);
    QVERIFY(error == -EINVAL || error == -ENOENT);
    QVERIFY(!alsaErrors.isEmpty());
    QVERIFY(alsaErrors.last().startsWith("virtualcard: "));
}

void TestVirtualCardFaults::cardWithoutFilesPlays()
{
    // A number that takes more than 32 bits is read, too, where ALSA takes such a one.
    const QByteArray frames = sizeof(long) > 4 ? "30000000000" : "2000000000";
    Pcm pcm;
    QCOMPARE(openWithFields("speed 20\nvanish_after " + frames, pcm), 0);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(writeAll(pcm, media::noise(1000).samples));
    QCOMPARE(snd_pcm_drain(pcm.get()), 0);
}

void TestVirtualCardFaults::recordThatCannotBeMadeFailsTheSetUp()
{
    const AlsaErrors keep;
    Pcm pcm;
    const QString events = TestProcess::path("own.events");
    QCOMPARE(openWithFields(QStringLiteral("events \"%1\"\nrecord \"/dev/null/x.wav\"").arg(events),
                            pcm),
             0);
    QCOMPARE(configure(pcm, Setup()), -ENOTDIR);
    QCOMPARE(alsaErrors, QStringList("virtualcard: /dev/null/x.wav: Not a directory"));
}

void TestVirtualCardFaults::filesAreNumberedBeforeTheSuffix_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::newRow("suffix") << "own.wav"
                            << "own-2.wav";
    QTest::newRow("no suffix") << "own"
                               << "own-2";
    QTest::newRow("dot in the folder") << "own.folder/own"
                                       << "own.folder/own-2";
    QTest::newRow("suffix in a folder") << "own.folder/own.wav"
                                        << "own.folder/own-2.wav";
    QTest::newRow("hidden") << "own.folder/.own"
                            << "own.folder/.own-2";
}

void TestVirtualCardFaults::filesAreNumberedBeforeTheSuffix()
{
    QFETCH(QString, first);
    QFETCH(QString, second);
    QDir().mkpath(TestProcess::path("own.folder"));
    media::writeFile(first, "text"); // shorter than a header
    QFile::remove(TestProcess::path(second));
    Pcm pcm;
    const QString fields =
        QStringLiteral("comment \"Records\"\nhint { show on }\nspeed 20\nrecord \"%1\"");
    QCOMPARE(openWithFields(fields.arg(TestProcess::path(first)), pcm), 0);
    QCOMPARE(configure(pcm, Setup()), 0);
    QVERIFY(QFile::exists(TestProcess::path(second)));
    QCOMPARE(media::readFile(TestProcess::path(first)), QByteArray("text"));
}

void TestVirtualCardFaults::fullDiskIsReportedOnce()
{
    const VirtualCard card("card");
    const AlsaErrors keep;
    const Pcm pcm = openPcm(card.device());
    QCOMPARE(configure(pcm, Setup()), 0);
    // No file can grow beyond this size. By default the signal would end the process.
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const rlimit small{10000, former.rlim_max};
    (void)std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const bool taken = writeAll(pcm, media::noise(30000).samples);
    const int drained = snd_pcm_drain(pcm.get());
    setrlimit(RLIMIT_FSIZE, &former);
    (void)std::signal(SIGXFSZ, SIG_DFL);
    QVERIFY(taken);
    QCOMPARE(drained, 0);
    QCOMPARE(alsaErrors.size(), 1);
    QVERIFY(alsaErrors.first().endsWith("card-card.wav: File too large"));
    QVERIFY(card.has("drained"));
}

void TestVirtualCardFaults::cardsComeAndGo()
{
    const VirtualCard first("first");
    QVERIFY(!openPcm("second"));
    QCOMPARE(errno, ENOENT);
    {
        const VirtualCard second("second");
        QVERIFY(openPcm("second"));
        QVERIFY(openPcm("first"));
    }
    QVERIFY(!openPcm("second"));
    QVERIFY(openPcm("null"));
    // A new card of an old name has played nothing.
    QVERIFY(play("first", media::noise(10)));
    const VirtualCard again("second");
    QCOMPARE(again.frames(), qint64(0));
    QCOMPARE(again.eventNames(), QStringList());
}

void TestVirtualCardFaults::generatedConfigurationWorks()
{
    const QString record = TestProcess::path("a \"quoted\" name.wav");
    QProcess generator;
    generator.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    generator.start(VIRTUALCARD_CONFIG,
                    {"--plugin", VIRTUALCARD_PLUGIN, "--name", "generated", "--record", record,
                     "--speed", "20", "--starve", "wait", "--default"});
    QVERIFY(generator.waitForFinished(patience));
    QCOMPARE(generator.exitCode(), 0);
    const QByteArray before = qgetenv("ALSA_CONFIG_PATH");
    const QString file = media::writeFile("generated.conf", generator.readAllStandardOutput());
    qputenv("ALSA_CONFIG_PATH", file.toLocal8Bit());
    const media::Pcm sound = media::noise(3000);
    const bool played = play("default", sound);
    qputenv("ALSA_CONFIG_PATH", before);
    QVERIFY(played);
    QVERIFY(media::readFile(record).endsWith(sound.samples));
}

void TestVirtualCardFaults::tenCardsPlayAtOnce()
{
    std::vector<std::unique_ptr<VirtualCard>> cards;
    std::vector<std::thread> clients;
    std::vector<char> successes(10, 0);
    for (unsigned i = 0; i < 10; ++i) {
        cards.push_back(std::make_unique<VirtualCard>(QStringLiteral("card%1").arg(i)));
    }
    for (unsigned i = 0; i < 10; ++i) {
        clients.emplace_back([&cards, &successes, i] {
            successes[i] = play(cards[i]->device(), media::noise(20000, i)) ? 1 : 0;
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    for (unsigned i = 0; i < 10; ++i) {
        QVERIFY(successes[i] == 1);
        QVERIFY(cards[i]->samples() == media::noise(20000, i).samples);
    }
}

KOVA_TEST(TestVirtualCardFaults)
#include "tst_virtualcardfaults.moc"
