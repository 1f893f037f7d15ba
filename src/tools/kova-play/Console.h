#ifndef KOVA_PLAY_CONSOLE_H
#define KOVA_PLAY_CONSOLE_H

#include <QtCore/QString>

#include <mutex>

/// The only writer on standard output and standard error, so that whole lines and the live line
/// never run into each other. May be called from any thread.
class Console
{
public:
    /// Writes a result, one line on standard output.
    void printResult(const QString& line);
    /// Writes text that has its line ends on standard output.
    void printText(const QString& lines);
    /// Writes a message to the user, one line on standard error, after the program's name.
    void printMessage(const QString& line);
    /// Writes one log line on standard error, in the encoding of the user.
    void printLogLine(const QString& line);

    /// Puts `line` in the place of the live line, the unfinished last line of the terminal on
    /// standard error. It must be narrower than the terminal. An empty one removes the live line.
    void setLiveLine(const QString& line);
    /// Forgets the live line without removing it, because another program wrote to the terminal.
    void forgetLiveLine();

    /// Whether all results could be written.
    bool resultsWritten() const;

private:
    void write(FILE* stream, const QByteArray& bytes);

    mutable std::mutex mutex;
    QByteArray liveLine;
    bool failed = false;
};

#endif
