#ifndef KOVA_PLAY_PROGRAM_H
#define KOVA_PLAY_PROGRAM_H

#include "kit/HttpServer.h"
#include "kit/Waiting.h"

#include <QtCore/QProcess>
#include <QtCore/QStringList>

#include <termios.h>

/// What starts the program.
QString kovaPlay();

bool isAscii(const QByteArray& text);

/// Whether the tests run in the C locale. Some of them run a second time, in one that has UTF-8.
bool localeIsC();

/// The program with plain input and output.
class Program : public ChildProcess
{
public:
    explicit Program(const QStringList& arguments);

    void set(const QString& variable, const QString& value);

    void begin();

    /// Starts the program if needed and waits for its end. The test fails if the program has
    /// printed anything but ASCII in the C locale.
    /// @return its exit status, or the negative number of the signal that ended it
    int finish();

    void send(int number) const;

    QByteArray out; ///< standard output so far
    QByteArray err; ///< standard error so far

protected:
    void setupChildProcess() override;

    /// All that the program has printed.
    virtual QByteArray printed() { return out + err; }

private:
    bool begun = false;
};

/// The program, or a shell, on a terminal of its own.
class TerminalProgram : public Program
{
public:
    explicit TerminalProgram(const QStringList& arguments, unsigned short columns = 80);
    ~TerminalProgram() override;

    void type(const QByteArray& keys) const;

    void resize(unsigned short columns) const;

    /// Everything that the terminal was sent.
    QByteArray screen();

    /// Waits until the terminal was sent `text` behind what an earlier call has found.
    bool waitForText(const QByteArray& text);

    /// Forgets what was sent until now.
    void clear();

    /// The terminal goes away, as when its window is closed.
    void hangUp();

    /// What an interactive shell does when it takes the terminal.
    void resetMode() const { tcsetattr(slave, TCSANOW, &formerMode); }

    bool givesSingleKeys() const { return (mode().c_lflag & (ICANON | ECHO)) == 0; }

    bool hasFormerMode() const;

    /// The texts that were shown in the live line, one after the other.
    QStringList liveLines();

protected:
    void setupChildProcess() override;

    QByteArray printed() override { return screen(); }

private:
    termios mode() const;

    int master;
    int slave;
    termios formerMode;
    QByteArray sent;
    int seen = 0;
};

/// A test of the program, with two short sounds in its folder: one.wav and two.wav.
class ProgramTest : public QObject
{
protected:
    ProgramTest();

    QByteArray samplesOfOne;
    QByteArray samplesOfTwo;
    QString one; ///< the path of a sound
    QString two;
};

/// Whether the program's own sanitizer hands no signal to a program that is blocked.
#ifdef __SANITIZE_THREAD__
constexpr bool signalsAreHeldBack = true;
#else
constexpr bool signalsAreHeldBack = false;
#endif

/// Has a program run without root's right to read and write everything.
void bindToPermissions(Program& program);

/// The elements of this machine without those of one plug-in.
void hidePlugin(Program& program, const QString& fileName);

/// No elements but those that every player needs and those of some plug-ins.
/// @param plugins  their names: "wavparse" for the file libgstwavparse.so
void offerPlugins(Program& program, const QStringList& plugins);

/// The plug-ins behind all formats that --check lists and this machine can play.
QStringList pluginsOfAllFormats();

/// Has the program's only thread block when it opens a device: ALSA's configuration is a FIFO that
/// has no writer.
void blockAtDevice(Program& program);

/// Sends SIGINT again and again until the program ends: a single one would be handled by its
/// event loop, which does not turn.
int interruptRepeatedly(Program& program);

#endif
