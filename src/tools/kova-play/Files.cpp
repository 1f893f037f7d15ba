#include "Files.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr ushort firstByte = 0xdc00; // the surrogate that holds byte 0, if that were ever needed

/// The type of what a path names; 0 when nothing is there.
mode_t typeOf(const QString& path)
{
    struct stat status = {};
    return stat(files::encoded(path).constData(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

QString tooLarge(qint64 limit)
{
    constexpr qint64 half = 1 << 29; // the largest array is a few bytes short of 2 GiB
    return QString("it is larger than %1 GiB").arg((limit + half) >> 30);
}

/// How many bytes a file has; 0 when only reading shows that.
qint64 knownSize(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

} // namespace

QString files::decoded(const QByteArray& name)
{
    QString text = QString::fromLocal8Bit(name);
    if (text.toLocal8Bit() == name) {
        return text;
    }
    text.clear();
    for (const char byte : name) {
        const ushort value = static_cast<uchar>(byte);
        text += QChar(value < 0x80 ? value : static_cast<ushort>(firstByte + value));
    }
    return text;
}

QByteArray files::encoded(const QString& name)
{
    QByteArray bytes;
    QString text; // since the last such byte
    QChar previous;
    for (const QChar character : name) {
        if (holdsByte(character, previous)) {
            bytes += text.toLocal8Bit();
            bytes += static_cast<char>(character.unicode() - firstByte);
            text.clear();
        } else {
            text += character;
        }
        previous = character;
    }
    return bytes + text.toLocal8Bit();
}

bool files::holdsByte(QChar character, QChar previous)
{
    return character.unicode() >= firstByte + 0x80 && character.unicode() <= firstByte + 0xff &&
           !previous.isHighSurrogate();
}

bool files::exists(const QString& path)
{
    return typeOf(path) != 0;
}

bool files::isFolder(const QString& path)
{
    return typeOf(path) == S_IFDIR;
}

bool files::isRegular(const QString& path)
{
    return typeOf(path) == S_IFREG;
}

bool files::isPipe(const QString& path)
{
    return typeOf(path) == S_IFIFO;
}

bool files::isReadable(const QString& path)
{
    return access(encoded(path).constData(), R_OK) == 0;
}

int files::openForReading(const QString& path)
{
    return ::open(encoded(path).constData(), O_RDONLY | O_CLOEXEC);
}

bool files::isMisreadInUri(const QString& path)
{
    // The current folder counts, too; what is no text in its name shows as a replacement.
    const QString absolute = QFileInfo(path).absoluteFilePath();
    QChar previous;
    return std::any_of(absolute.cbegin(), absolute.cend(), [&previous](QChar character) {
        const bool isByte = holdsByte(character, previous);
        previous = character;
        return isByte || character == QChar::ReplacementCharacter ||
               QLatin1String("#%?").contains(character);
    });
}

QString files::pathOf(int descriptor)
{
    return QString("/proc/self/fd/%1").arg(descriptor);
}

files::Contents files::readAll(int descriptor, qint64 limit)
{
    constexpr qint64 chunk = 1 << 20;
    QFile file;
    if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered,
                                     QFileDevice::AutoCloseHandle)) {
        return {QByteArray(), qt_error_string(errno)};
    }
    if (knownSize(descriptor) > limit) {
        return {QByteArray(), tooLarge(limit)};
    }
    QByteArray bytes;
    bytes.reserve(static_cast<int>(knownSize(descriptor)));
    for (QByteArray more = file.read(chunk); !more.isEmpty(); more = file.read(chunk)) {
        if (bytes.size() + qint64(more.size()) > limit) {
            return {QByteArray(), tooLarge(limit)};
        }
        bytes += more;
    }
    const bool failed = file.error() != QFileDevice::NoError;
    return {bytes, failed ? file.errorString() : QString()};
}
