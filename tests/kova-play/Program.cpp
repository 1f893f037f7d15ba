#include "Program.h"

#include "kit/Media.h"
#include "kit/TestProcess.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

QString kovaPlay()
{
    return TestProcess::startable(QStringLiteral(KOVA_PLAY));
}

bool isAscii(const QByteArray& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

bool localeIsC()
{
    return qgetenv("LC_ALL") == "C";
}

Program::Program(const QStringList& arguments)
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

void Program::set(const QString& variable, const QString& value)
{
    QProcessEnvironment environment = processEnvironment().isEmpty()
                                          ? QProcessEnvironment::systemEnvironment()
                                          : processEnvironment();
    environment.insert(variable, value);
    setProcessEnvironment(environment);
}

void Program::begin()
{
    begun = true;
    start();
}

int Program::finish()
{
    if (!begun) {
        begin();
    }
    if (!waitFor([this] { return state() == NotRunning; })) {
        return -1000;
    }
    if (localeIsC() && !isAscii(printed())) {
        QTest::qFail("not ASCII: " + printed().toPercentEncoding(" /:'\"", "\n"), __FILE__,
                     __LINE__);
    }
    return exitStatus() == NormalExit ? exitCode() : -exitCode();
}

void Program::send(int number) const
{
    ::kill(static_cast<pid_t>(processId()), number);
}

void Program::setupChildProcess()
{
    ChildProcess::setupChildProcess();
    // Scripts that run tests in the background have them ignore these.
    (void)std::signal(SIGINT, SIG_DFL);
    (void)std::signal(SIGQUIT, SIG_DFL);
}

TerminalProgram::TerminalProgram(const QStringList& arguments, unsigned short columns)
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

TerminalProgram::~TerminalProgram()
{
    kill();
    waitForFinished();
    ::close(slave);
    ::close(master);
}

void TerminalProgram::type(const QByteArray& keys) const
{
    QCOMPARE(::write(master, keys.constData(), static_cast<size_t>(keys.size())),
             static_cast<ssize_t>(keys.size()));
}

void TerminalProgram::resize(unsigned short columns) const
{
    const winsize size = {24, columns, 0, 0};
    ioctl(master, TIOCSWINSZ, &size);
}

QByteArray TerminalProgram::screen()
{
    std::array<char, 4096> bytes = {};
    ssize_t count = 0;
    while ((count = ::read(master, bytes.data(), bytes.size())) > 0) {
        sent.append(bytes.data(), static_cast<int>(count));
    }
    return sent;
}

bool TerminalProgram::waitForText(const QByteArray& text)
{
    const bool found = waitFor([&] { return screen().indexOf(text, seen) >= 0; });
    if (!found) {
        qWarning() << "expected" << text << "behind" << seen << "in" << sent;
        return false;
    }
    seen = sent.indexOf(text, seen) + text.size();
    return true;
}

void TerminalProgram::clear()
{
    screen();
    sent.clear();
    seen = 0;
}

void TerminalProgram::hangUp()
{
    ::close(slave);
    ::close(master);
    slave = master = -1;
}

bool TerminalProgram::hasFormerMode() const
{
    const termios now = mode();
    return now.c_lflag == formerMode.c_lflag && now.c_iflag == formerMode.c_iflag &&
           now.c_oflag == formerMode.c_oflag;
}

QStringList TerminalProgram::liveLines()
{
    static const QRegularExpression text("\r([^\r\n\033]+)\033\\[K");
    QStringList lines;
    auto match = text.globalMatch(QString::fromUtf8(screen()));
    while (match.hasNext()) {
        lines << match.next().captured(1);
    }
    return lines;
}

void TerminalProgram::setupChildProcess()
{
    Program::setupChildProcess();
    setsid();
    ioctl(slave, TIOCSCTTY, 0);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(slave, descriptor);
    }
}

termios TerminalProgram::mode() const
{
    termios now = {};
    tcgetattr(slave, &now);
    return now;
}

ProgramTest::ProgramTest()
    : samplesOfOne(media::noise(24000, 1).samples), samplesOfTwo(media::noise(24000, 2).samples),
      one(media::writeWav("one.wav", media::noise(24000, 1))),
      two(media::writeWav("two.wav", media::noise(24000, 2)))
{
}

void bindToPermissions(Program& program)
{
    if (::geteuid() == 0) {
        program.setArguments(
            QStringList{"--bounding-set=-dac_override,-dac_read_search", program.program()} +
            program.arguments());
        program.setProgram("setpriv");
    }
}

/// A folder with links to plug-ins becomes the only one that the program knows.
static void setPlugins(Program& program, const QStringList& fileNames)
{
    static int count = 0;
    const QString folder = TestProcess::path(QString("plugins-%1").arg(++count));
    QDir().mkpath(folder);
    for (const QString& name : fileNames) {
        QFile::link(QDir(QStringLiteral(GSTREAMER_PLUGINS)).filePath(name), folder + '/' + name);
    }
    program.set("GST_PLUGIN_SYSTEM_PATH_1_0", folder);
    program.set("GST_REGISTRY", folder + "/registry.bin");
}

void hidePlugin(Program& program, const QString& fileName)
{
    QStringList files = QDir(QStringLiteral(GSTREAMER_PLUGINS)).entryList({"*.so"}, QDir::Files);
    files.removeAll(fileName);
    setPlugins(program, files);
}

void offerPlugins(Program& program, const QStringList& plugins)
{
    QStringList names = {"alsa",         "app",      "audioconvert",     "audioresample",
                         "coreelements", "playback", "typefindfunctions"};
    names += plugins;
    for (QString& name : names) {
        name = "libgst" + name + ".so";
    }
    setPlugins(program, names);
}

QStringList pluginsOfAllFormats()
{
    return {"audioparsers", "flac", "id3demux", "isomp4", "matroska", "mpg123",
            "ogg",          "opus", "soup",     "vorbis", "wavparse"};
}

void blockAtDevice(Program& program)
{
    const QString path = TestProcess::path("blocking.fifo");
    mkfifo(path.toLocal8Bit(), 0600);
    program.set("ALSA_CONFIG_PATH", path);
}

int interruptRepeatedly(Program& program)
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
