#include "support/Media.h"

#include "support/TestProcess.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QtEndian>

#include <array>
#include <cmath>
#include <random>

namespace media {

int sampleSize(SampleFormat format)
{
    switch (format) {
    case SampleFormat::S16:
        return 2;
    case SampleFormat::S24:
        return 3;
    case SampleFormat::S32:
    case SampleFormat::F32:
        break;
    }
    return 4;
}

int Pcm::frameSize() const
{
    return sampleSize(format) * channels;
}

qint64 Pcm::frames() const
{
    return channels > 0 ? samples.size() / frameSize() : 0;
}

// ---- Sound -------------------------------------------------------------------------------------

template <typename Integer>
static void appendLittleEndian(QByteArray& bytes, Integer value)
{
    std::array<char, sizeof(Integer)> raw{};
    qToLittleEndian(value, raw.data());
    bytes.append(raw.data(), static_cast<int>(raw.size()));
}

/// Makes one sample, which is not zero, of random bits.
static void appendNoise(QByteArray& bytes, SampleFormat format, quint32 random)
{
    if (format == SampleFormat::F32) {
        // Between 0 and 1/2 and never 0: 24 bits are exact in a float.
        appendLittleEndian(bytes, static_cast<float>((random >> 8) | 1U) / (1U << 25));
        return;
    }
    const int size = sampleSize(format);
    for (int i = 0; i < size; ++i) {
        bytes.append(static_cast<char>((random >> (8 * i)) | 1U));
    }
}

Pcm noise(SampleFormat format, int rate, int channels, int frames, quint32 seed)
{
    Pcm sound{format, rate, channels, {}};
    sound.samples.reserve(frames * sound.frameSize());
    std::mt19937 generator(seed);
    for (int i = 0; i < frames * channels; ++i) {
        appendNoise(sound.samples, format, static_cast<quint32>(generator()));
    }
    return sound;
}

Pcm tone(int rate, int channels, int frames)
{
    Pcm sound{SampleFormat::S16, rate, channels, {}};
    for (int i = 0; i < frames; ++i) {
        const double angle = 2.0 * 3.14159265358979 * 440.0 * i / rate;
        const auto sample = static_cast<qint16>(std::lround(12000.0 * std::sin(angle)));
        for (int channel = 0; channel < channels; ++channel) {
            appendLittleEndian(sound.samples, sample);
        }
    }
    return sound;
}

QByteArray withoutTrailingSilence(const QByteArray& samples, int frameSize)
{
    int end = samples.size();
    while (end > 0 && samples.at(end - 1) == 0) {
        --end;
    }
    const int frames = (end + frameSize - 1) / frameSize;
    return samples.left(frames * frameSize);
}

QByteArray withoutSilence(const QByteArray& samples, int frameSize)
{
    const QByteArray silence(frameSize, '\0');
    QByteArray sound;
    sound.reserve(samples.size());
    for (int at = 0; at < samples.size(); at += frameSize) {
        const QByteArray frame = QByteArray::fromRawData(samples.constData() + at, frameSize);
        if (frame != silence) {
            sound.append(frame);
        }
    }
    return sound;
}

/// One sample as a fraction of full scale.
static double sampleAt(const char* raw, SampleFormat format)
{
    switch (format) {
    case SampleFormat::S16:
        return qFromLittleEndian<qint16>(raw) / 32768.0;
    case SampleFormat::S24: {
        const std::array<char, 4> shifted{0, raw[0], raw[1], raw[2]};
        return qFromLittleEndian<qint32>(shifted.data()) / 2147483648.0;
    }
    case SampleFormat::S32:
        return qFromLittleEndian<qint32>(raw) / 2147483648.0;
    case SampleFormat::F32:
        break;
    }
    return static_cast<double>(qFromLittleEndian<float>(raw));
}

double loudness(const Pcm& sound)
{
    const int size = sampleSize(sound.format);
    const int count = sound.samples.size() / size;
    double sum = 0.0;
    for (int i = 0; i < count; ++i) {
        const double sample = sampleAt(sound.samples.constData() + i * size, sound.format);
        sum += sample * sample;
    }
    return count > 0 ? std::sqrt(sum / count) : 0.0;
}

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

QByteArray wavBytes(const Pcm& sound)
{
    const bool isFloat = sound.format == SampleFormat::F32;
    const auto dataSize = static_cast<quint32>(sound.samples.size());
    const auto frameSize = static_cast<quint16>(sound.frameSize());
    const auto rate = static_cast<quint32>(sound.rate);

    QByteArray wav("RIFF");
    appendLittleEndian(wav, 36 + dataSize);
    wav += "WAVEfmt ";
    appendLittleEndian(wav, quint32(16));
    appendLittleEndian(wav, quint16(isFloat ? 3 : 1));
    appendLittleEndian(wav, static_cast<quint16>(sound.channels));
    appendLittleEndian(wav, rate);
    appendLittleEndian(wav, rate * frameSize);
    appendLittleEndian(wav, frameSize);
    appendLittleEndian(wav, static_cast<quint16>(8 * sampleSize(sound.format)));
    wav += "data";
    appendLittleEndian(wav, dataSize);
    return wav + sound.samples;
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
