#ifndef KOVA_PLAY_TEXT_H
#define KOVA_PLAY_TEXT_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// Texts for one line of a terminal.
namespace text {

/// Makes file names, byte sequences in disguise and messages of others fit to be printed: nothing
/// in them ends the line or commands the terminal.
/// @return `any` with a blank in the place of each control character, and a question mark in that
///         of each byte that is no text
QString oneLine(const QString& any);

/// A text in the encoding of the user. Quotation marks, dashes and dots that it does not have are
/// replaced by those of ASCII, and other characters by question marks.
QByteArray encoded(const QString& any);

/// How many columns of a terminal a line takes.
int columns(const QString& line);

/// Shortens a line to `maximum` columns. What is left out shows as "..." where that fits.
QString fitted(const QString& line, int maximum);

/// A time as "0:07", "12:34" or "1:02:03".
QString clock(qint64 milliseconds);

} // namespace text

#endif
