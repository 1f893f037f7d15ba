#include "Text.h"

#include "Files.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QTextCodec>
#include <QtCore/QVector>

#include <algorithm>
#include <cwchar>
#include <utility>

#include <langinfo.h>

namespace {

/// Characters that the locale does not know are taken for narrow ones.
int columnsOf(uint character)
{
    return std::max(wcwidth(static_cast<wchar_t>(character)), character < 0x300 ? 1 : 0);
}

/// The beginning of a line that takes at most `maximum` columns.
QString cut(const QString& line, int maximum)
{
    QString result;
    int used = 0;
    for (const uint character : line.toUcs4()) {
        used += columnsOf(character);
        if (used > maximum) {
            break;
        }
        result += QString::fromUcs4(&character, 1);
    }
    return result;
}

/// Whether the locale has no characters but those of ASCII, as C has. Qt takes its encoding for
/// UTF-8, because names of files have that mostly.
bool localeIsAscii()
{
    return qstrcmp(nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0;
}

} // namespace

QString text::oneLine(const QString& any)
{
    QString line = any;
    QChar previous;
    for (QChar& character : line) {
        const QChar::Category category = character.category();
        if (files::holdsByte(character, std::exchange(previous, character))) {
            character = QLatin1Char('?');
        }
        if (category == QChar::Other_Control || category == QChar::Separator_Line ||
            category == QChar::Separator_Paragraph) {
            character = QLatin1Char(' ');
        }
    }
    return line;
}

QByteArray text::encoded(const QString& any)
{
    const bool ascii = localeIsAscii();
    if (!ascii && QTextCodec::codecForLocale()->canEncode(any)) {
        return any.toLocal8Bit();
    }
    QString plain = any;
    plain.replace(QRegularExpression("[\u2018\u2019]"), "'");
    plain.replace(QRegularExpression("[\u201c\u201d]"), "\"");
    plain.replace(QRegularExpression("[\u2013\u2014]"), "-");
    plain.replace(QChar(0x2026), "...");
    if (ascii) {
        const auto isForeign = [](QChar character) { return character.unicode() > 0x7f; };
        std::replace_if(plain.begin(), plain.end(), isForeign, QLatin1Char('?'));
    }
    return plain.toLocal8Bit();
}

int text::columns(const QString& line)
{
    int sum = 0;
    for (const uint character : line.toUcs4()) {
        sum += columnsOf(character);
    }
    return sum;
}

QString text::fitted(const QString& line, int maximum)
{
    const QLatin1String omission("...");
    if (columns(line) <= maximum) {
        return line;
    }
    if (maximum <= omission.size()) {
        return cut(line, maximum);
    }
    return cut(line, maximum - omission.size()) + omission;
}

QString text::clock(qint64 milliseconds)
{
    const qint64 seconds = milliseconds / 1000;
    const QLatin1Char zero('0');
    if (seconds < 3600) {
        return QString("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, zero);
    }
    return QString("%1:%2:%3")
        .arg(seconds / 3600)
        .arg(seconds / 60 % 60, 2, 10, zero)
        .arg(seconds % 60, 2, 10, zero);
}
