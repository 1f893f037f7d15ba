#ifndef TEST_DOCS_LOG_LINES_H
#define TEST_DOCS_LOG_LINES_H

#include <QtCore/QString>
#include <QtCore/QVector>

/// A log line, in the source code or on the page.
struct LogLine
{
    QString level;
    /// On the page the text itself; in the source code a regular expression that consists of the
    /// fixed texts, with any text for each value.
    QString text;

    /// Whether this line of the source code logs that line of the page.
    bool covers(const LogLine& row) const;
};

/// Returns the rows of the page that quote a line: "| LEVEL | `text` | …".
QVector<LogLine> linesOfPage(const QString& path);

/// Returns all lines that the source code below `folder` can log: those of the player library and
/// of the named pipe.
QVector<LogLine> linesOfSource(const QString& folder);

#endif
