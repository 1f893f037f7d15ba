#include "kit/Media.h"

#include "kit/TestProcess.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>

namespace media {

// ---- Files -------------------------------------------------------------------------------------

QString writeFile(const QString& name, const QByteArray& bytes)
{
    const QString path = TestProcess::path(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("cannot write %s: %s", qPrintable(path), qPrintable(file.errorString()));
    }
    return path;
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s: %s", qPrintable(path), qPrintable(file.errorString()));
    }
    return file.readAll();
}

QString writeWav(const QString& name, const Pcm& sound)
{
    return writeFile(name, wavBytes(sound));
}

// ---- Encoders ----------------------------------------------------------------------------------

void run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000);
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qFatal("%s %s failed: %s\n%s", qPrintable(program), qPrintable(arguments.join(' ')),
               qPrintable(process.errorString()), process.readAll().constData());
    }
}

QString encode(const QString& name, const QString& wav)
{
    const QString path = TestProcess::path(name);
    if (name.endsWith(QLatin1String(".ogg"))) {
        run("oggenc", {"--quiet", "--serial", "1", "-o", path, wav});
    } else if (name.endsWith(QLatin1String(".opus"))) {
        run("opusenc", {"--quiet", "--serial", "1", wav, path});
    } else if (name.endsWith(QLatin1String(".flac"))) {
        // Blocks of 4608 frames last a whole number of nanoseconds at 48 kHz. With others
        // GStreamer's sink takes the first frame away: it rounds the end of the first block down.
        run("flac", {"--silent", "--force", "--blocksize=4608", "-o", path, wav});
    } else if (name.endsWith(QLatin1String(".mp3"))) {
        run("lame", {"--quiet", wav, path});
    } else {
        qFatal("no encoder is known for %s", qPrintable(name));
    }
    return path;
}

QString encodeContainer(const QString& name, const QString& audioCodec, const QStringList& wavs,
                        bool withPicture)
{
    const QString path = TestProcess::path(name);
    QStringList inputs;
    QStringList maps;
    for (const QString& wav : wavs) {
        maps << "-map" << QStringLiteral("%1:a").arg(maps.size() / 2);
        inputs << "-i" << wav;
    }
    QStringList picture;
    if (withPicture) {
        maps << "-map" << QStringLiteral("%1:v").arg(wavs.size());
        inputs << "-f"
               << "lavfi"
               << "-i"
               << "testsrc=size=64x48:rate=5:duration=1";
        picture << "-c:v" << (name.endsWith(QLatin1String(".mp4")) ? "mjpeg" : "libvpx");
    }
    run("ffmpeg", QStringList{"-nostdin", "-loglevel", "error", "-y"} + inputs + maps + picture +
                      QStringList{"-c:a", audioCodec, "-strict", "-2", path});
    return path;
}

} // namespace media
