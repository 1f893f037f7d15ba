#ifndef KOVA_PLAY_FILES_H
#define KOVA_PLAY_FILES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// Local files whatever bytes their names have.
namespace files {

/// The text of a name of the operating system. A name that is no text of the locale's encoding
/// keeps its bytes: each byte outside ASCII becomes one of the surrogates U+DC80 to U+DCFF.
QString decoded(const QByteArray& name);
/// The name that such a text was made from.
QByteArray encoded(const QString& name);
/// Whether a character in front of which `previous` is holds the place of a byte.
bool holdsByte(QChar character, QChar previous);

/// Whether something of this name exists, links followed.
bool exists(const QString& path);
bool isFolder(const QString& path);
bool isRegular(const QString& path);
bool isPipe(const QString& path);
/// Whether this process may read it.
bool isReadable(const QString& path);

/// Opens a file for reading. @return the descriptor, or -1 with the reason in errno
int openForReading(const QString& path);

/// Whether the absolute path of a file has characters that a player takes for something else in a
/// URI, or bytes that are no text.
bool isMisreadInUri(const QString& path);
/// A path of what a descriptor has open, which every player can read.
QString pathOf(int descriptor);

/// All bytes of a file or stream.
struct Contents
{
    QByteArray bytes;
    QString problem; ///< why it could not be read; empty when it was
};

/// How many bytes an array of Qt can hold.
constexpr qint64 largestArray = 0x7fffffff - 64;

/// Reads to the end of a descriptor, and closes it.
/// @param limit  more bytes are a problem; at most largestArray
Contents readAll(int descriptor, qint64 limit);

} // namespace files

#endif
