#ifndef TEST_DOCS_LOG_LINES_H
#define TEST_DOCS_LOG_LINES_H

#include <QtCore/QString>
#include <QtCore/QVector>

/// A line of the log, in the source or on the page.
struct LogLine
{
    QString level;
    /// On the page the text as it stands there; in the source a regular expression, in which the
    /// fixed texts stand for themselves and each value for any text.
    QString text;

    /// Whether this line of the source writes that line of the page.
    bool covers(const LogLine& row) const;
};

/// The rows of the page that quote a line: "| LEVEL | `text` | …".
QVector<LogLine> linesOfPage(const QString& path);

/// All lines that the sources below `folder` can write: those of the player library, and those of
/// the named pipe.
QVector<LogLine> linesOfSource(const QString& folder);

#endif
