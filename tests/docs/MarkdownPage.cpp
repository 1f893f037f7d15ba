#include "MarkdownPage.h"

#include <QtCore/QRegularExpression>

#include "kit/Media.h"

MarkdownPage::MarkdownPage(const QString& path)
{
    bool inCode = false;
    for (const QString& line : QString::fromUtf8(media::readFile(path)).split('\n')) {
        if (line.startsWith("```")) {
            inCode = !inCode;
        } else if (!inCode) {
            lines << line;
        }
    }
}

QStringList MarkdownPage::links() const
{
    static const QRegularExpression code("`[^`]*`");
    static const QRegularExpression comment("<!--.*-->");
    static const QRegularExpression link("\\]\\(([^)\\s]+)\\)");
    QStringList found;
    // The text of a link may contain a line break.
    QString text = lines.join('\n');
    text.remove(comment).remove(code);
    for (auto matches = link.globalMatch(text); matches.hasNext();) {
        found << matches.next().captured(1);
    }
    return found;
}

QStringList MarkdownPage::anchors() const
{
    static const QRegularExpression heading("^#+ (.*)$");
    static const QRegularExpression dropped("[^\\w -]",
                                            QRegularExpression::UseUnicodePropertiesOption);
    QStringList found;
    for (const QString& line : lines) {
        const QRegularExpressionMatch match = heading.match(line);
        if (match.hasMatch()) {
            const QString anchor = match.captured(1).toLower().remove(dropped).replace(' ', '-');
            // Repeated headings get a number.
            QString unique = anchor;
            for (int i = 1; found.contains(unique); ++i) {
                unique = anchor + '-' + QString::number(i);
            }
            found << unique;
        }
    }
    return found;
}
