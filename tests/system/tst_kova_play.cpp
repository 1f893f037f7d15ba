#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/PipeWriter.h"
#include "kit/PlayerProbe.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <array>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

// ---- The program as a child --------------------------------------------------------------------

/// What starts the program.
static QString kovaPlay()
{
    return TestProcess::startable(QStringLiteral(KOVA_PLAY));
}

/// The program with plain input and output.
class Program : public ChildProcess
{
public:
    explicit Program(const QStringList& arguments)
    {
        setProgram(kovaPlay());
        setArguments(arguments);
        setWorkingDirectory(TestProcess::path());
        setStandardInputFile(nullDevice());
        connect(this, &QProcess::readyReadStandardOutput, this,
                [this] { out += readAllStandardOutput(); });
        connect(this, &QProcess::readyReadStandardError, this,
                [this] { err += readAllStandardError(); });
    }

    void set(const QString& variable, const QString& value)
    {
        QProcessEnvironment environment = processEnvironment().isEmpty()
                                              ? QProcessEnvironment::systemEnvironment()
                                              : processEnvironment();
        environment.insert(variable, value);
        setProcessEnvironment(environment);
    }

    void begin()
    {
        begun = true;
        start();
    }

    /// Waits until it is gone; begins it before, if that was not done.
    /// @return its exit status, or the negative number of the signal that it died of
    int finish()
    {
        if (!begun) {
            begin();
        }
        if (!waitFor([this] { return state() == NotRunning; })) {
            return -1000;
        }
        return exitStatus() == NormalExit ? exitCode() : -exitCode();
    }

    void send(int number) const { ::kill(static_cast<pid_t>(processId()), number); }

    QByteArray out; ///< standard output so far
    QByteArray err; ///< standard error so far

protected:
    void setupChildProcess() override
    {
        ChildProcess::setupChildProcess();
        // Scripts that run tests in the background have them ignore these.
        (void)std::signal(SIGINT, SIG_DFL);
        (void)std::signal(SIGQUIT, SIG_DFL);
    }

private:
    bool begun = false;
};

/// The program, or a shell, on a terminal of its own.
class TerminalProgram : public Program
{
public:
    explicit TerminalProgram(const QStringList& arguments, unsigned short columns = 80)
        : Program(arguments), master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
    {
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
            qFatal("no pseudo terminal");
        }
        resize(columns);
        // Kept open, so that the terminal and its mode outlive the program.
        slave = ::open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
        formerMode = mode();
        set("TERM", "vt100");
    }

    ~TerminalProgram() override
    {
        kill();
        waitForFinished();
        ::close(slave);
        ::close(master);
    }

    void type(const QByteArray& keys) const
    {
        QCOMPARE(::write(master, keys.constData(), static_cast<size_t>(keys.size())),
                 static_cast<ssize_t>(keys.size()));
    }

    void resize(unsigned short columns) const
    {
        const winsize size = {24, columns, 0, 0};
        ioctl(master, TIOCSWINSZ, &size);
    }

    /// Everything that the terminal was sent.
    QByteArray screen()
    {
        std::array<char, 4096> bytes = {};
        ssize_t count = 0;
        while ((count = ::read(master, bytes.data(), bytes.size())) > 0) {
            sent.append(bytes.data(), static_cast<int>(count));
        }
        return sent;
    }

    /// Waits until the terminal was sent `text` behind what an earlier call has found.
    bool waitForText(const QByteArray& text)
    {
        const bool found = waitFor([&] { return screen().indexOf(text, seen) >= 0; });
        if (!found) {
            qWarning() << "expected" << text << "behind" << seen << "in" << sent;
            return false;
        }
        seen = sent.indexOf(text, seen) + text.size();
        return true;
    }

    /// Forgets what was sent until now.
    void clear()
    {
        screen();
        sent.clear();
        seen = 0;
    }

    /// The terminal goes away, as when its window is closed.
    void hangUp()
    {
        ::close(slave);
        ::close(master);
        slave = master = -1;
    }

    /// What an interactive shell does when it takes the terminal.
    void resetMode() const { tcsetattr(slave, TCSANOW, &formerMode); }

    bool givesSingleKeys() const { return (mode().c_lflag & (ICANON | ECHO)) == 0; }

    bool hasFormerMode() const
    {
        const termios now = mode();
        return now.c_lflag == formerMode.c_lflag && now.c_iflag == formerMode.c_iflag &&
               now.c_oflag == formerMode.c_oflag;
    }

    /// The texts that were shown in the live line, one after the other.
    QStringList liveLines()
    {
        static const QRegularExpression text("\r([^\r\n\033]+)\033\\[K");
        QStringList lines;
        auto match = text.globalMatch(QString::fromUtf8(screen()));
        while (match.hasNext()) {
            lines << match.next().captured(1);
        }
        return lines;
    }

protected:
    void setupChildProcess() override
    {
        Program::setupChildProcess();
        setsid();
        ioctl(slave, TIOCSCTTY, 0);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            dup2(slave, descriptor);
        }
    }

private:
    termios mode() const
    {
        termios now = {};
        tcgetattr(slave, &now);
        return now;
    }

    int master;
    int slave;
    termios formerMode;
    QByteArray sent;
    int seen = 0;
};

// ---- The tests ---------------------------------------------------------------------------------

class TestKovaPlay : public QObject
{
    Q_OBJECT

    QString one; ///< the path of a sound
    QString two;
    QByteArray samplesOfOne;
    QByteArray samplesOfTwo;

private Q_SLOTS:
    void init();

    void itemsPlayInOrder();
    void deviceIsFreeBeforeTheNextItemBegins();
    void itemsPlayAtOnce();
    void webItemIsPlayed();
    void itemsAreNamedInTheCLocale();
    void failedItemDoesNotKeepTheNextFromPlaying();
    void failureHasReasonAndHint_data();
    void failureHasReasonAndHint();
    void itemThatMayNotBeReadFails_data();
    void itemThatMayNotBeReadFails();
    void deviceThatRefusesFailsItem();
    void deviceThatVanishesFailsItem();
    void missingElementFailsItem_data();
    void missingElementFailsItem();
    void outcomeIsOneLineWhateverTheName();
    void tokens_data();
    void tokens();

    void usageErrors_data();
    void usageErrors();
    void helpNamesEveryOption();
    void versionIsShown();
    void outputThatCannotBeWrittenFails();

    void signalStopsLoopAndItemsNotBegun_data();
    void signalStopsLoopAndItemsNotBegun();
    void secondInterruptEndsBlockedProgram();
    void ignoredSignalStaysIgnored();

    void logIsSilentWithoutVerbose();
    void verboseLogsDownToDebug();
    void verboseTwiceLogsEverything();

    void graphsBecomePictures();
    void graphsStayDotFilesWithoutGraphviz();
    void dotThatFailsIsReported_data();
    void dotThatFailsIsReported();
    void graphsOfNothingAreNoGraphs();
    void graphsNeedAFolderThatCanBeWritten();

    void listDevicesShowsWhatCanPlay();
    void checkFindsNothingMissing();
    void checkNamesPackageOfMissingElement();
    void checkFailsOnDeviceThatDoesNotOpen_data();
    void checkFailsOnDeviceThatDoesNotOpen();
    void checkTellsWhatCanBeDoneAboutDevice_data();
    void checkTellsWhatCanBeDoneAboutDevice();
    void listDevicesIsEmptyWithoutConfiguration();
    void checkFailsWithoutGLib();
    void itemsFailWithoutGLib();

    void fakeItemsStopAtOnce();

    void fileAndStandardInputPlayFromMemory();
    void standardInputThatIsAPipeIsReadToItsEnd();
    void standardInputThatIsEmptyFails();
    void pipePlaysWhatAWriterWrites();
    void pipeOfRawSamplesPlaysWithCaps();
    void sourceThatCannotBeReadFails_data();
    void sourceThatCannotBeReadFails();
    void itemsPlayBeforeDataBeforePipes();

    void keysPauseResumeStopAndQuit();
    void pauseReachesTheDevice();
    void clockStandsWhilePaused();
    void functionKeysDoNothing();
    void liveLineFitsTerminal();
    void liveLineOfSeveralItems();
    void logLinesDoNotRunIntoLiveLine();
    void liveLineShowsFailing();
    void dumbTerminalGetsPlainOutput_data();
    void dumbTerminalGetsPlainOutput();
    void nothingRunsIntoTheOutputOfAPipeline();
    void errorsInAFileNeedNoTerminal();
    void resultsGoToStandardOutputOnly();
    void terminalHasItsModeBack_data();
    void terminalHasItsModeBack();
    void secondInterruptRestoresTerminal();
    void suspendedProgramGivesTerminalBack();
    void backgroundProgramLeavesTerminalAlone();
    void lostTerminalDoesNotEndIgnoringProgram();
};

/// Has a program run without root's right to read and write everything.
static void bindToPermissions(Program& program)
{
    if (::geteuid() == 0) {
        program.setArguments(
            QStringList{"--bounding-set=-dac_override,-dac_read_search", program.program()} +
            program.arguments());
        program.setProgram("setpriv");
    }
}

/// Puts a `dot` of its own in front of the machine's.
static void replaceDot(Program& program, const QByteArray& script)
{
    QDir().mkpath(TestProcess::path("programs"));
    QFile dot(media::writeFile("programs/dot", script));
    dot.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    program.set("PATH", TestProcess::path("programs") + ':' + qEnvironmentVariable("PATH"));
}

/// The elements of this machine without those of one plug-in.
static void hidePlugin(Program& program, const QString& fileName)
{
    const QString folder = TestProcess::path("plugins");
    QDir().mkpath(folder);
    const QDir system(QStringLiteral(GSTREAMER_PLUGINS));
    for (const QString& file : system.entryList({"*.so"}, QDir::Files)) {
        if (file != fileName) {
            QFile::link(system.filePath(file), folder + '/' + file);
        }
    }
    program.set("GST_PLUGIN_SYSTEM_PATH_1_0", folder);
    program.set("GST_REGISTRY", TestProcess::path("incomplete-registry.bin"));
}

void TestKovaPlay::init()
{
    if (one.isEmpty()) {
        const media::Pcm first = media::noise(media::SampleFormat::S16, 48000, 2, 24000, 1);
        const media::Pcm second = media::noise(media::SampleFormat::S16, 48000, 2, 24000, 2);
        one = media::writeWav("one.wav", first);
        two = media::writeWav("two.wav", second);
        samplesOfOne = first.samples;
        samplesOfTwo = second.samples;
    }
}

// ---- Items and outcomes ------------------------------------------------------------------------

void TestKovaPlay::itemsPlayInOrder()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "one.wav", two});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\nended two.wav\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(card.samples().startsWith(samplesOfOne));
    QVERIFY(card.samples().indexOf(samplesOfTwo) >= samplesOfOne.size());
}

void TestKovaPlay::deviceIsFreeBeforeTheNextItemBegins()
{
    const VirtualCard card("card");
    Program program({"--device", card.device(), one, two});
    QCOMPARE(program.finish(), 0);
    QStringList life;
    for (const QString& event : card.eventNames()) {
        if (event == "open" || event == "close") {
            life << event;
        }
    }
    QCOMPARE(life, QStringList({"open", "close", "open", "close"}));
}

void TestKovaPlay::itemsPlayAtOnce()
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

void TestKovaPlay::webItemIsPlayed()
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

void TestKovaPlay::itemsAreNamedInTheCLocale()
{
    const VirtualCard card("card");
    // A shell names the file, byte by byte: this process is in the C locale itself.
    Program program({});
    program.setProgram("bash");
    program.setArguments({"-c",
                          "name=$(printf 'Gr\\303\\274\\303\\237e.wav'); cp one.wav \"$name\"; "
                          "exec \"$0\" -d \"$1\" \"$name\"",
                          kovaPlay(), card.device()});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended Gr\303\274\303\237e.wav\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestKovaPlay::failedItemDoesNotKeepTheNextFromPlaying()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "nothing.wav", one});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error nothing.wav: file does not exist\nended one.wav\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestKovaPlay::failureHasReasonAndHint_data()
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
    QTest::newRow("percent") << "so%nd.wav" << QByteArray("error so%nd.wav: ")
                             << QByteArray("rename");
    QTest::newRow("hash") << "so#nd.wav" << QByteArray("error so#nd.wav: Resource not found.\n")
                          << QByteArray("rename");
    QTest::newRow("folder") << "folder" << QByteArray("is a directory.\n")
                            << QByteArray("name the files in the folder");
    QTest::newRow("not audio") << "text.txt" << QByteArray("error text.txt: ")
                               << QByteArray("run again with -v");
}

void TestKovaPlay::failureHasReasonAndHint()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, hint);

    const VirtualCard card("card");
    QDir().mkpath(TestProcess::path("folder"));
    media::writeFile("text.txt", "This is no music, whatever it may sound like.\n");
    media::writeFile("so#nd.wav", "");
    media::writeFile("so%nd.wav", "");
    Program program({"-d", card.device(), item});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.contains(out), program.out);
    QCOMPARE(program.out.count('\n'), 1);
    QVERIFY2(program.err.contains("kova-play: ") && program.err.contains(hint), program.err);
}

void TestKovaPlay::itemThatMayNotBeReadFails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::newRow("file") << QStringList{"locked.wav"} << QByteArray("error locked.wav: ");
    QTest::newRow("pipe") << QStringList{"--pipe", "locked.fifo"}
                          << QByteArray("error locked.fifo: the pipe cannot be read\n");
}

void TestKovaPlay::itemThatMayNotBeReadFails()
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

void TestKovaPlay::deviceThatRefusesFailsItem()
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

void TestKovaPlay::deviceThatVanishesFailsItem()
{
    VirtualCard::Settings settings;
    settings.vanishAfter = 4800;
    const VirtualCard card("card", settings);
    Program program({"-d", card.device(), one});
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith("error one.wav: "), program.out);
    QCOMPARE(program.out.count('\n'), 1);
}

void TestKovaPlay::missingElementFailsItem_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("file") << QStringList{"one.wav"};
    QTest::newRow("web") << QStringList{"http://localhost/one.wav"};
    QTest::newRow("secure web") << QStringList{"https://localhost/one.wav"};
    QTest::newRow("memory") << QStringList{"--data", "one.wav"};
}

void TestKovaPlay::missingElementFailsItem()
{
    QFETCH(QStringList, arguments);
    const VirtualCard card("card");
    Program program(QStringList{"-d", card.device()} + arguments);
    hidePlugin(program, "libgstalsa.so");
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error one.wav: cannot be started (see -v)\n"));
    QVERIFY(program.err.contains("--check"));
}

void TestKovaPlay::outcomeIsOneLineWhateverTheName()
{
    Program program({"no\nthing\033[2J\u0085.wav"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out.count('\n'), 1);
    QVERIFY(!(program.out + program.err).contains('\033'));
}

void TestKovaPlay::tokens_data()
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

void TestKovaPlay::tokens()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, out);

    Program program(QStringList{"--fake"} + arguments);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, out);
}

// ---- The command line --------------------------------------------------------------------------

void TestKovaPlay::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("nothing") << QStringList{} << QByteArray("No item");
    QTest::newRow("no item") << QStringList{"-d", "null"} << QByteArray("No item");
    QTest::newRow("unknown") << QStringList{"--colour", "a"} << QByteArray("'colour'");
    QTest::newRow("value left out") << QStringList{"a", "-d"} << QByteArray("'-d'");
    QTest::newRow("value too many") << QStringList{"--loop=3", "a"} << QByteArray("loop");
    QTest::newRow("empty device") << QStringList{"-d", "", "a"} << QByteArray("--device");
    QTest::newRow("empty token") << QStringList{"-t", "", "a"} << QByteArray("--token");
    QTest::newRow("empty folder") << QStringList{"--graphs=", "a"} << QByteArray("--graphs");
    QTest::newRow("check of item") << QStringList{"--check", "a"} << QByteArray("no items");
    QTest::newRow("input twice") << QStringList{"-", "-"} << QByteArray("only once");
    QTest::newRow("caps alone") << QStringList{"--caps", "audio/x-raw", "a"}
                                << QByteArray("--pipe");
    QTest::newRow("no caps") << QStringList{"--caps", "a b(", "--pipe", "p"}
                             << QByteArray("x-unaligned-raw");
    QTest::newRow("empty pipe") << QStringList{"--pipe", ""} << QByteArray("--pipe");
    QTest::newRow("empty file") << QStringList{"--data", ""} << QByteArray("--data");
    QTest::newRow("check of data")
        << QStringList{"--check", "--data", "a"} << QByteArray("no items");
    QTest::newRow("two tasks") << QStringList{"--check", "--list-devices"} << QByteArray("exclude");
    QTest::newRow("folder in a file") << QStringList{"--fake", "--graphs", "one.wav/pictures", "a"}
                                      << QByteArray("another folder");
}

void TestKovaPlay::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);

    Program program(arguments);
    QCOMPARE(program.finish(), 2);
    QCOMPARE(program.out, QByteArray());
    QVERIFY2(program.err.contains(message), program.err);
    QVERIFY(program.err.endsWith("kova-play: Try 'kova-play --help'.\n"));
}

void TestKovaPlay::helpNamesEveryOption()
{
    Program program({"--help"});
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.out.startsWith("Usage: kova-play [options] ITEM"));
    for (const char* option :
         {"--device", "--token", "--loop", "--at-once", "--verbose", "--graphs", "--list-devices",
          "--check", "--fake", "--version", "--data", "--pipe", "--caps"}) {
        QVERIFY2(program.out.contains(option), option);
    }
    QCOMPARE(program.err, QByteArray());
}

void TestKovaPlay::versionIsShown()
{
    Program program({"--version"});
    QCOMPARE(program.finish(), 0);
    QVERIFY(QRegularExpression("^kova-play \\d+\\.\\d+\\.\\d+\n$")
                .match(QString::fromUtf8(program.out))
                .hasMatch());
}

void TestKovaPlay::outputThatCannotBeWrittenFails()
{
    Program program({"--fake", "a"});
    program.setStandardOutputFile("/dev/full");
    QCOMPARE(program.finish(), 1);
    QVERIFY(program.err.contains("standard output"));
}

// ---- Signals -----------------------------------------------------------------------------------

void TestKovaPlay::signalStopsLoopAndItemsNotBegun_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TestKovaPlay::signalStopsLoopAndItemsNotBegun()
{
    QFETCH(int, number);
    const VirtualCard card("card");
    Program program({"-d", card.device(), "--loop", one, two});
    program.begin();
    const QByteArray part = samplesOfOne.mid(40000, 4000);
    QVERIFY(waitFor([&] { return card.samples().count(part) > 1; })); // it has looped
    program.send(number);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped one.wav\nstopped two.wav\n"));
    QCOMPARE(program.err, QByteArray());
    QCOMPARE(card.eventNames().count("open"), 1);
}

#ifdef __SANITIZE_THREAD__
static constexpr bool signalsAreHeldBack = true;
#else
static constexpr bool signalsAreHeldBack = false;
#endif

/// Sends SIGINT again and again until the program is gone: a single one would be handled by its
/// event loop, which does not turn.
static int interruptRepeatedly(Program& program)
{
    QElapsedTimer sinceLast;
    waitFor([&] {
        if (!sinceLast.isValid() || sinceLast.hasExpired(150)) {
            program.send(SIGINT);
            sinceLast.start();
        }
        return program.state() == QProcess::NotRunning;
    });
    return program.finish();
}

/// An item that blocks the program's only thread when it is started: a FIFO that nobody writes.
static QString makeBlockingItem()
{
    QString path = TestProcess::path("blocking.fifo");
    mkfifo(path.toLocal8Bit(), 0600);
    return path;
}

void TestKovaPlay::secondInterruptEndsBlockedProgram()
{
    if (signalsAreHeldBack) {
        QSKIP("ThreadSanitizer hands no signal to a program that is blocked");
    }
    Program program({"-v", "-d", "null", makeBlockingItem()});
    program.begin();
    QVERIFY(waitFor([&] { return program.err.contains("Enter"); }));
    QCOMPARE(interruptRepeatedly(program), -SIGINT);
    QCOMPARE(program.out, QByteArray());
}

void TestKovaPlay::ignoredSignalStaysIgnored()
{
    const VirtualCard card("card");
    Program program({});
    program.setProgram("bash");
    program.setArguments(
        {"-c", R"(trap '' HUP; exec "$0" -d "$1" --loop one.wav)", kovaPlay(), card.device()});
    program.begin();
    QVERIFY(waitFor([&] { return card.frames() > 0; }));
    program.send(SIGHUP);
    const qint64 framesAtSignal = card.frames();
    const qint64 framesOfOne = samplesOfOne.size() / 4;
    QVERIFY(waitFor([&] { return card.frames() > framesAtSignal + 4 * framesOfOne; }));
    QCOMPARE(program.out, QByteArray());
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
}

// ---- Log and pictures --------------------------------------------------------------------------

void TestKovaPlay::logIsSilentWithoutVerbose()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.err, QByteArray());
}

void TestKovaPlay::verboseLogsDownToDebug()
{
    const VirtualCard card("card");
    Program program({"-v", "-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QVERIFY(program.err.contains(" INFO  SimplePlayer: "));
    QVERIFY(program.err.contains(" DEBUG SimplePlayer: "));
    QVERIFY(!program.err.contains(" TRACE "));
    QVERIFY(!program.err.contains("log4cplus"));
}

void TestKovaPlay::verboseTwiceLogsEverything()
{
    const VirtualCard card("card");
    Program program({"--verbose", "-v", "-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.err.contains(" TRACE SimplePlayer: "));
}

/// The names in the folder "pictures" that end with `suffix`, without it.
static QStringList pictures(const QString& suffix)
{
    QStringList names;
    for (const QString& file : QDir(TestProcess::path("pictures")).entryList({'*' + suffix})) {
        names << file.chopped(suffix.size());
    }
    return names;
}

static void makePicturesFolderWithFormerGraph()
{
    QDir(TestProcess::path("pictures")).removeRecursively();
    QDir().mkpath(TestProcess::path("pictures"));
    media::writeFile("pictures/former.dot", "digraph former {}\n");
}

void TestKovaPlay::graphsBecomePictures()
{
    const VirtualCard card("card");
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "-d", card.device(), one});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QStringList graphs = pictures(".dot");
    QVERIFY(graphs.removeOne("former"));
    QVERIFY(graphs.size() >= 3);
    QCOMPARE(pictures(".svg"), graphs);
    QVERIFY(media::readFile(TestProcess::path("pictures/" + graphs.first() + ".svg"))
                .contains("UriDecodeBin"));
    QVERIFY2(program.err.startsWith(QByteArray("kova-play: ") + QByteArray::number(graphs.size()) +
                                    " graphs in "),
             program.err);
}

void TestKovaPlay::graphsStayDotFilesWithoutGraphviz()
{
    const VirtualCard card("card");
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "-d", card.device(), one});
    program.set("PATH", TestProcess::path("folder"));
    QCOMPARE(program.finish(), 0);
    QVERIFY(pictures(".dot").size() >= 4);
    QCOMPARE(pictures(".svg"), QStringList());
    QVERIFY2(program.err.contains("apt-get install graphviz"), program.err);
}

void TestKovaPlay::dotThatFailsIsReported_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("fails") << QByteArray("#!/bin/sh\necho no ink >&2\nexit 3\n")
                           << QByteArray("': no ink\n");
    QTest::newRow("dies") << QByteArray("#!/bin/sh\necho no paper >&2\nkill -9 $$\n")
                          << QByteArray("': no paper\n");
    QTest::newRow("is no program")
        << QByteArray("#!/nonexistent/interpreter\n") << QByteArray("No such file or directory\n");
}

void TestKovaPlay::dotThatFailsIsReported()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, reason);
    const VirtualCard card("card");
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "-d", card.device(), one});
    replaceDot(program, script);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended one.wav\n"));
    QVERIFY2(program.err.startsWith("kova-play: dot made no picture of '"), program.err);
    QVERIFY2(program.err.endsWith(reason), program.err);
    QCOMPARE(program.err.count('\n'), 1); // the first picture that fails is the last one
}

void TestKovaPlay::graphsOfNothingAreNoGraphs()
{
    makePicturesFolderWithFormerGraph();
    Program program({"--graphs", "pictures", "--fake", "a"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.err, QByteArray("kova-play: no pipeline was drawn: nothing was played\n"));
    QCOMPARE(pictures(".svg"), QStringList());
}

void TestKovaPlay::graphsNeedAFolderThatCanBeWritten()
{
    QDir().mkpath(TestProcess::path("locked"));
    QVERIFY(QFile(TestProcess::path("locked")).setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    Program program({"--graphs", "locked", "--fake", "a"});
    bindToPermissions(program);
    QCOMPARE(program.finish(), 2);
    QCOMPARE(program.out, QByteArray());
    QVERIFY2(program.err.contains("locked' cannot be made or written: name another folder"),
             program.err);
}

// ---- Devices and check -------------------------------------------------------------------------

void TestKovaPlay::listDevicesShowsWhatCanPlay()
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

void TestKovaPlay::checkFindsNothingMissing()
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

void TestKovaPlay::checkNamesPackageOfMissingElement()
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

void TestKovaPlay::checkFailsOnDeviceThatDoesNotOpen_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("unknown") << "nothing"
                             << QByteArray("FAILED  device nothing: No such file or directory; "
                                           "there is no such device: kova-play --list-devices");
    QTest::newRow("refusing") << "card" << QByteArray("FAILED  device card: ");
}

void TestKovaPlay::checkFailsOnDeviceThatDoesNotOpen()
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

void TestKovaPlay::checkTellsWhatCanBeDoneAboutDevice_data()
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

void TestKovaPlay::checkTellsWhatCanBeDoneAboutDevice()
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

void TestKovaPlay::listDevicesIsEmptyWithoutConfiguration()
{
    Program program({"--list-devices"});
    program.set("ALSA_CONFIG_PATH", media::writeFile("broken.conf", "pcm { {\n"));
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray());
    QCOMPARE(program.err, QByteArray());
}

void TestKovaPlay::checkFailsWithoutGLib()
{
    const VirtualCard card("card");
    Program program({"--check", "-d", card.device()});
    program.set("QT_NO_GLIB", "1");
    QCOMPARE(program.finish(), 1);
    QVERIFY2(program.out.startsWith("FAILED  Qt on GLib's event dispatcher: unset QT_NO_GLIB\n"),
             program.out);
}

void TestKovaPlay::itemsFailWithoutGLib()
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

void TestKovaPlay::fakeItemsStopAtOnce()
{
    Program program({"--fake", "a", "b"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped a\nstopped b\n"));
    QCOMPARE(program.err, QByteArray());
}

// ---- On a terminal -----------------------------------------------------------------------------

void TestKovaPlay::fileAndStandardInputPlayFromMemory()
{
    const VirtualCard card("card");
    Program program({"-d", card.device(), "--data", two, "-"});
    program.setStandardInputFile(one);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended -\nended two.wav\n"));
    QCOMPARE(program.err, QByteArray());
    const QByteArray heard = card.samples();
    const int second = heard.indexOf(samplesOfTwo);
    QVERIFY(heard.startsWith(samplesOfOne));
    QVERIFY(second >= samplesOfOne.size());
}

void TestKovaPlay::standardInputThatIsAPipeIsReadToItsEnd()
{
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("input.fifo");
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    PipeWriter::Manner manner;
    manner.chunk = PipeWriter::atomic;
    manner.pauseMs = 1;
    manner.keepOpen = true;
    PipeWriter writer(fifo, media::readFile(one), manner);
    Program program({"-d", card.device(), "-"});
    program.setStandardInputFile(fifo);
    program.begin();
    QVERIFY(writer.waitForWritten());
    QVERIFY(writer.close());
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended -\n"));
    QCOMPARE(program.err, QByteArray());
    QVERIFY(media::withoutTrailingSilence(card.samples(), 4) == samplesOfOne);
}

void TestKovaPlay::standardInputThatIsEmptyFails()
{
    Program program({"-d", "null", "-"});
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, QByteArray("error -: Stream contains no data.\n"));
}

void TestKovaPlay::pipePlaysWhatAWriterWrites()
{
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("stream.fifo");
    Program program({"-d", card.device(), "--pipe", fifo});
    program.begin();
    QVERIFY(waitFor([&] { return program.err.contains("waiting for a writer"); }));
    PipeWriter writer(fifo, media::readFile(one));
    QCOMPARE(program.finish(), 0);
    QVERIFY(writer.waitForFinished());
    QCOMPARE(program.out, QByteArray("ended stream.fifo\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
    QVERIFY(QFile::exists(fifo));
}

void TestKovaPlay::pipeOfRawSamplesPlaysWithCaps()
{
    const VirtualCard card("card");
    const QString fifo = TestProcess::path("raw.fifo");
    Program program(
        {"-d", card.device(), "--pipe", fifo, "--caps",
         "audio/x-unaligned-raw,format=S16LE,rate=48000,channels=2,layout=interleaved"});
    program.begin();
    QVERIFY(waitFor([&] { return program.err.contains("waiting for a writer"); }));
    // Enough silence behind the sound: raw samples may lose their tail.
    PipeWriter writer(fifo, samplesOfOne + QByteArray(4 * 48000 * 4, '\0'));
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("ended raw.fifo\n"));
    QVERIFY(card.samples().startsWith(samplesOfOne));
}

void TestKovaPlay::sourceThatCannotBeReadFails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("outcome");
    QTest::addColumn<QByteArray>("hint");
    QTest::newRow("missing file") << QStringList{"--data", "missing.wav"}
                                  << QByteArray("error missing.wav: No such file or directory\n")
                                  << QByteArray("could not be read into memory");
    QTest::newRow("folder") << QStringList{"--data", "."}
                            << QByteArray("error .: file to open is a directory\n")
                            << QByteArray("could not be read into memory");
    QTest::newRow("pipe is a file")
        << QStringList{"--pipe", "one.wav"} << QByteArray("error one.wav: it is not a named pipe\n")
        << QByteArray("name another path");
    QTest::newRow("pipe nowhere") << QStringList{"--pipe", "no/pipe"}
                                  << QByteArray("error pipe: the pipe could not be made\n")
                                  << QByteArray("may files be made");
}

void TestKovaPlay::sourceThatCannotBeReadFails()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, outcome);
    QFETCH(QByteArray, hint);
    Program program(QStringList{"-d", "null"} + arguments);
    QCOMPARE(program.finish(), 1);
    QCOMPARE(program.out, outcome);
    QVERIFY2(program.err.contains(hint), program.err);
}

void TestKovaPlay::itemsPlayBeforeDataBeforePipes()
{
    Program program({"--fake", "--pipe", "p", "--data", "d", "-t", "x", "a"});
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.out, QByteArray("stopped x-1\nstopped x-2\nstopped x-3\n"));
    Program named({"--fake", "--pipe", "p", "--data", "d", "a"});
    QCOMPARE(named.finish(), 0);
    QCOMPARE(named.out, QByteArray("stopped a\nstopped d\nstopped p\n"));
    QVERIFY(!QFile::exists(TestProcess::path("p")));
}

void TestKovaPlay::keysPauseResumeStopAndQuit()
{
    TerminalProgram program({"--fake", "--loop", "a", "b", "c"});
    program.begin();
    QVERIFY(program.waitForText("[1/3] a  playing  0:0"));
    QVERIFY(program.givesSingleKeys());
    program.type(" ");
    QVERIFY(program.waitForText("[1/3] a  paused  0:"));
    program.type(" ");
    QVERIFY(program.waitForText("[1/3] a  playing  0:"));
    program.type("s");
    QVERIFY(program.waitForText("\r\033[Kstopped a\r\n"));
    QVERIFY(program.waitForText("[2/3] b  playing  0:0"));
    program.type("q");
    QVERIFY(program.waitForText("\r\033[Kstopped b\r\n"));
    QVERIFY(program.waitForText("stopped c\r\n"));
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.hasFormerMode());
    QVERIFY(program.screen().endsWith("\r\n") || program.screen().endsWith("\r\033[K"));
}

void TestKovaPlay::pauseReachesTheDevice()
{
    // Long and slow: the end of an item and its beginning again pause a device, too.
    VirtualCard::Settings settings;
    settings.speed = 1;
    const VirtualCard card("card", settings);
    media::writeWav("long.wav", media::noise(media::SampleFormat::S16, 8000, 1, 8000 * 600));
    TerminalProgram program({"-d", card.device(), "long.wav"});
    program.begin();
    QVERIFY(waitFor([&] { return card.has("first-frame"); }));
    program.type(" ");
    QVERIFY(waitFor([&] { return card.has("pause"); }));
    QVERIFY(program.waitForText("paused"));
    program.type(" ");
    QVERIFY(waitFor([&] { return card.has("resume"); }));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.waitForText("stopped long.wav\r\n"));
}

void TestKovaPlay::clockStandsWhilePaused()
{
    TerminalProgram program({"--fake", "--loop", "a"});
    program.begin();
    QVERIFY(program.waitForText("a  playing  0:01"));
    program.type(" ");
    QVERIFY(program.waitForText("a  paused  0:0"));
    const QString paused = program.liveLines().last();
    QElapsedTimer timer;
    timer.start();
    QVERIFY(waitFor([&] { return timer.hasExpired(1100); })); // a running clock would show it
    QCOMPARE(program.liveLines().last(), paused);
    program.clear();
    program.type(" ");
    QVERIFY(program.waitForText("playing"));
    QCOMPARE(program.liveLines().first(), QString(paused).replace("paused", "playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
}

void TestKovaPlay::functionKeysDoNothing()
{
    TerminalProgram program({"--fake", "--loop", "a"});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.type("\033[Ax\033[15~\033OPz\033s\033q");
    program.type(" \033"); // nothing follows, as after the escape key itself
    QVERIFY(program.waitForText("a  paused"));
    QVERIFY(!program.screen().contains("stopped"));
    program.clear();
    program.type(" \033["); // as slow lines bring the keys above
    QVERIFY(program.waitForText("a  playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
}

void TestKovaPlay::liveLineFitsTerminal()
{
    TerminalProgram program({"--fake", "--loop", "a-name-of-many-letters.wav"}, 30);
    program.begin();
    QVERIFY(program.waitForText("a-name-of-m...  playing  0:0"));
    program.clear();
    program.resize(80);
    QVERIFY(program.waitForText("a-name-of-many-letters.wav  playing  0:0"));
    program.clear();
    program.resize(7);
    QVERIFY(waitFor([&] { return !program.liveLines().isEmpty(); }));
    QVERIFY(waitFor([&] { return program.liveLines().last().size() < 7; }));
    program.resize(0); // not known; 80 is usual
    QVERIFY(program.waitForText("a-name-of-many-letters.wav  playing  0:0"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
}

void TestKovaPlay::liveLineOfSeveralItems()
{
    TerminalProgram program({"--fake", "--loop", "--at-once", "a", "b", "c"});
    program.begin();
    QVERIFY(program.waitForText("[3 of 3] a and others  playing  0:0"));
    program.type(" ");
    QVERIFY(program.waitForText("[3 of 3] a and others  paused  0:0"));
    program.type("s");
    QVERIFY(program.waitForText("stopped a\r\n"));
    QVERIFY(program.waitForText("stopped b\r\n"));
    QVERIFY(program.waitForText("stopped c\r\n"));
    QCOMPARE(program.finish(), 0);
}

void TestKovaPlay::logLinesDoNotRunIntoLiveLine()
{
    const VirtualCard card("card");
    TerminalProgram program({"-vv", "-d", card.device(), one}, 200);
    program.begin();
    QVERIFY(program.waitForText("ended one.wav\r\n"));
    QCOMPARE(program.finish(), 0);
    const QByteArray screen = program.screen();
    int count = 0;
    for (int at = screen.indexOf(" TRACE "); at >= 0; at = screen.indexOf(" TRACE ", at + 1)) {
        const QByteArray before = screen.left(at - 12); // the time stands before the level
        QVERIFY2(before.isEmpty() || before.endsWith('\n') || before.endsWith("\r\033[K"), before);
        ++count;
    }
    QVERIFY(count > 10);
}

void TestKovaPlay::liveLineShowsFailing()
{
    TerminalProgram program({"-d", "null", one});
    hidePlugin(program, "libgstalsa.so");
    program.begin();
    QVERIFY(program.waitForText("one.wav  failing  0:00"));
    QVERIFY(program.waitForText("error one.wav: cannot be started (see -v)\r\n"));
    QCOMPARE(program.finish(), 1);
}

/// Stops the items a and b with keys, and demands that nothing but the results is shown.
static void skipBothItems(TerminalProgram& program)
{
    program.begin();
    QVERIFY(waitFor([&] { return program.givesSingleKeys(); }));
    program.type("s");
    QVERIFY(program.waitForText("stopped a\r\n"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.screen(), QByteArray("stopped a\r\nstopped b\r\n"));
}

void TestKovaPlay::dumbTerminalGetsPlainOutput_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("dumb") << "dumb";
    QTest::newRow("unknown") << "";
}

void TestKovaPlay::dumbTerminalGetsPlainOutput()
{
    QFETCH(QString, type);
    TerminalProgram program({"--fake", "--loop", "a", "b"});
    program.set("TERM", type);
    skipBothItems(program);
}

void TestKovaPlay::nothingRunsIntoTheOutputOfAPipeline()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"--norc", "-c", "\"$0\" --fake --loop a b | cat", kovaPlay()});
    skipBothItems(program);
}

void TestKovaPlay::errorsInAFileNeedNoTerminal()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"-c", "exec \"$0\" --fake a b 2> errors.txt", kovaPlay()});
    program.begin();
    QCOMPARE(program.finish(), 0);
    QCOMPARE(program.screen(), QByteArray("stopped a\r\nstopped b\r\n"));
    QCOMPARE(media::readFile(TestProcess::path("errors.txt")), QByteArray());
}

void TestKovaPlay::resultsGoToStandardOutputOnly()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"-c", "\"$0\" --fake --loop a b > results.txt", kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("[1/2] a  playing"));
    program.type("q");
    QCOMPARE(program.finish(), 0);
    QVERIFY(!program.screen().contains("stopped a"));
    QCOMPARE(media::readFile(TestProcess::path("results.txt")),
             QByteArray("stopped a\nstopped b\n"));
}

void TestKovaPlay::terminalHasItsModeBack_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("status");
    QTest::newRow("SIGINT") << SIGINT << 0;
    QTest::newRow("SIGTERM") << SIGTERM << 0;
    QTest::newRow("SIGHUP") << SIGHUP << 0;
    QTest::newRow("SIGQUIT") << SIGQUIT << -SIGQUIT;
    QTest::newRow("SIGABRT") << SIGABRT << -SIGABRT;
    QTest::newRow("SIGPIPE") << SIGPIPE << -SIGPIPE;
}

void TestKovaPlay::terminalHasItsModeBack()
{
    QFETCH(int, number);
    QFETCH(int, status);
    TerminalProgram program({"--fake", "--loop", "a"});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(program.givesSingleKeys());
    program.send(number);
    QCOMPARE(program.finish(), status);
    QVERIFY(program.hasFormerMode());
}

void TestKovaPlay::secondInterruptRestoresTerminal()
{
    if (signalsAreHeldBack) {
        QSKIP("ThreadSanitizer hands no signal to a program that is blocked");
    }
    TerminalProgram program({"-v", "-d", "null", makeBlockingItem()});
    program.begin();
    QVERIFY(program.waitForText("Enter"));
    QVERIFY(program.givesSingleKeys());
    QCOMPARE(interruptRepeatedly(program), -SIGINT);
    QVERIFY(program.hasFormerMode());
}

void TestKovaPlay::suspendedProgramGivesTerminalBack()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments({"--norc", "-c",
                          "set -m; \"$0\" --fake --loop a; echo suspended $?; read; fg",
                          kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.type("\032"); // ^Z
    QVERIFY(program.waitForText("suspended 148"));
    QVERIFY(waitFor([&] { return program.hasFormerMode(); }));
    program.clear();
    program.type("\n");
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(program.givesSingleKeys());
    program.type("q");
    QVERIFY(program.waitForText("stopped a\r\n"));
    QCOMPARE(program.finish(), 0);
    QVERIFY(program.hasFormerMode());
}

/// How often a process has gone to sleep.
static int sleepsOf(pid_t process)
{
    static const QRegularExpression count("\nvoluntary_ctxt_switches:\t(\\d+)");
    const QString path = QString("/proc/%1/status").arg(process);
    return count.match(QString::fromLatin1(media::readFile(path))).captured(1).toInt();
}

void TestKovaPlay::backgroundProgramLeavesTerminalAlone()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments(
        {"--norc", "-c",
         "set -m; \"$0\" --fake --loop a & echo process $!.; fg; echo suspended; bg; "
         "read; echo forward; fg",
         kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("process "));
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(waitFor([&] { return program.givesSingleKeys(); }));
    const QByteArray screen = program.screen();
    const int number = screen.indexOf("process ") + 8;
    const pid_t process = screen.mid(number, screen.indexOf('.', number) - number).toInt();
    // Not by a key: a program that stops itself gives the terminal back before.
    ::kill(process, SIGSTOP);
    QVERIFY(program.waitForText("suspended"));
    program.resetMode();
    program.clear();
    const int sleeps = sleepsOf(process);
    QVERIFY(waitFor([&] { return sleepsOf(process) > sleeps + 5; }));
    program.type("\n");
    QVERIFY(program.waitForText("forward"));
    QVERIFY(!program.screen().left(program.screen().indexOf("forward")).contains("playing"));
    QVERIFY(program.waitForText("a  playing"));
    QVERIFY(waitFor([&] { return program.givesSingleKeys(); }));
    program.type("q");
    QVERIFY(program.waitForText("stopped a\r\n"));
    QCOMPARE(program.finish(), 0);
}

void TestKovaPlay::lostTerminalDoesNotEndIgnoringProgram()
{
    TerminalProgram program({});
    program.setProgram("bash");
    program.setArguments(
        {"-c", R"(trap '' HUP QUIT; exec "$0" --fake --loop a b > results.txt)", kovaPlay()});
    program.begin();
    QVERIFY(program.waitForText("a  playing"));
    program.hangUp();
    // It sleeps on: what is no terminal any more does not keep it busy.
    const auto process = static_cast<pid_t>(program.processId());
    const int sleeps = sleepsOf(process);
    QVERIFY(waitFor([&] { return sleepsOf(process) > sleeps + 5; }));
    program.send(SIGTERM);
    QCOMPARE(program.finish(), 0);
    QCOMPARE(media::readFile(TestProcess::path("results.txt")),
             QByteArray("stopped a\nstopped b\n"));
}

KOVA_TEST(TestKovaPlay)
#include "tst_kova_play.moc"
