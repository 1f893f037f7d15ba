#include "kit/Sound.h"

#include <QtCore/QtEndian>

#include <algorithm>
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

QByteArray Pcm::first(qint64 count) const
{
    return samples.left(static_cast<int>(count) * frameSize());
}

WavLayout Pcm::layout() const
{
    return {static_cast<unsigned>(rate), static_cast<unsigned>(channels),
            static_cast<unsigned>(sampleSize(format)), format == SampleFormat::F32};
}

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

Pcm noise(int frames, quint32 seed)
{
    return noise(SampleFormat::S16, 48000, 2, frames, seed);
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

QString difference(const QByteArray& recorded, const QByteArray& expected, int frameSize)
{
    const QByteArray actual = withoutTrailingSilence(recorded, frameSize);
    if (actual == expected) {
        return QString();
    }
    const auto differing =
        std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    return QStringLiteral("%1 bytes were recorded instead of %2; byte %3 is the first to differ")
        .arg(actual.size())
        .arg(expected.size())
        .arg(differing.first - actual.begin());
}

QByteArray wavBytes(const Pcm& sound)
{
    return QByteArray::fromStdString(
               wavHeader(sound.layout(), static_cast<std::uint64_t>(sound.samples.size()))) +
           sound.samples;
}

QByteArray endlessWavBytes(const Pcm& sound)
{
    QByteArray wav = wavBytes(sound);
    for (const int sizeAt : {4, wav.indexOf("data") + 4}) {
        wav.replace(sizeAt, 4, QByteArray(4, '\xff'));
    }
    return wav;
}

} // namespace media
