#include "LogLines.h"

#include "kit/Media.h"

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>

#include <utility>

namespace {

const QString anyValue = QStringLiteral(".+");

QString readSource(const QString& path)
{
    return QString::fromUtf8(media::readFile(path));
}

/// Returns the arguments of a call.
/// @param begin  the position after the opening parenthesis
QStringList argumentsAt(const QString& source, int begin)
{
    QStringList arguments = {QString()};
    int depth = 1;
    bool inText = false;
    for (int i = begin; i < source.size(); ++i) {
        const QChar c = source.at(i);
        if (inText) {
            inText = c != '"' || source.at(i - 1) == '\\';
        } else if (c == '"') {
            inText = true;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')' && --depth == 0) {
            break;
        } else if (c == ',' && depth == 1) {
            arguments << QString();
            continue;
        }
        arguments.last() += c;
    }
    for (QString& argument : arguments) {
        argument = argument.trimmed();
    }
    return arguments;
}

/// Returns the expression that matches the concatenation of the arguments.
QString patternOf(const QStringList& arguments)
{
    static const QRegularExpression literal("^\"(.*)\"$");
    QString pattern;
    for (const QString& argument : arguments) {
        const QRegularExpressionMatch match = literal.match(argument);
        pattern += match.hasMatch() ? QRegularExpression::escape(match.captured(1)) : anyValue;
    }
    return pattern;
}

/// Returns the qualified name of the function that contains `position`. Definitions begin in the
/// first column.
QString functionAt(const QString& source, int position)
{
    static const QRegularExpression definition("^(?:[\\w:<>]+[*&]* )*((?:\\w+::)?~?\\w+)\\(",
                                               QRegularExpression::MultilineOption);
    QString name;
    for (auto matches = definition.globalMatch(source.left(position)); matches.hasNext();) {
        name = matches.next().captured(1);
    }
    return name;
}

/// Returns the lines that the macros of the library log.
QVector<LogLine> macroLines(const QString& source)
{
    static const QRegularExpression macro("\\bLOG_(LINE|ENTER|LEAVE)\\(");
    QVector<LogLine> lines;
    for (auto matches = macro.globalMatch(source); matches.hasNext();) {
        const QRegularExpressionMatch match = matches.next();
        QStringList arguments = argumentsAt(source, match.capturedEnd());
        const QString level = arguments.takeFirst();
        QString text = patternOf(arguments);
        if (match.captured(1) != "LINE") {
            const QString word = match.captured(1) == "ENTER" ? "Enter " : "Leave ";
            text = QRegularExpression::escape(word + "SimplePlayer " +
                                              functionAt(source, match.capturedStart()) + ": ") +
                   text;
        }
        // A line without literals has its fixed text elsewhere, see below.
        if (text != anyValue + anyValue) {
            lines << LogLine{level, text};
        }
    }
    return lines;
}

/// Returns the texts that the engines pass to linkDecodedPad() for its warning.
QVector<LogLine> skipLines(const QString& source)
{
    static const QRegularExpression call("\\blinkDecodedPad\\((?=pad,)");
    QVector<LogLine> lines;
    for (auto matches = call.globalMatch(source); matches.hasNext();) {
        lines << LogLine{"WARN",
                         patternOf(argumentsAt(source, matches.next().capturedEnd()).mid(2))};
    }
    return lines;
}

/// Returns the lines of the named pipe, which all have one form.
QVector<LogLine> pipeLines(const QString& source)
{
    static const QRegularExpression failure("\"(Failed to [^\"]+)\"");
    QVector<LogLine> lines;
    for (auto matches = failure.globalMatch(source); matches.hasNext();) {
        lines << LogLine{"ERROR", QRegularExpression::escape(matches.next().captured(1)) +
                                      ", .+, id: .+ name: .+"};
    }
    return lines;
}

} // namespace

bool LogLine::covers(const LogLine& row) const
{
    const QRegularExpression expression(QRegularExpression::anchoredPattern(text));
    return level == row.level && expression.match(row.text).hasMatch();
}

QVector<LogLine> linesOfPage(const QString& path)
{
    static const QRegularExpression row("^\\| (ERROR|WARN|INFO|DEBUG|TRACE) \\| `([^`]+)` \\|",
                                        QRegularExpression::MultilineOption);
    QVector<LogLine> lines;
    for (auto matches = row.globalMatch(readSource(path)); matches.hasNext();) {
        const QRegularExpressionMatch match = matches.next();
        lines << LogLine{match.captured(1), match.captured(2)};
    }
    return lines;
}

QVector<LogLine> linesOfSource(const QString& folder)
{
    QVector<LogLine> lines;
    const QDir library(folder + "/lib/simplePlayer");
    for (const QString& file : library.entryList({"*.cpp", "*.h"}, QDir::Files)) {
        if (file != "Logging_p.h") { // the macros themselves
            const QString source = readSource(library.filePath(file));
            lines << macroLines(source) << skipLines(source);
        }
    }
    lines << pipeLines(readSource(folder + "/api/core/KovaNamedPipe.cpp"));
    return lines;
}
