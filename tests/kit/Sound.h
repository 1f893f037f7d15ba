#ifndef KIT_SOUND_H
#define KIT_SOUND_H

#include <QtCore/QByteArray>
#include <QtCore/QMetaType>
#include <QtCore/QString>

#include <wav/Wav.h>

// Sound in memory: how tests make it and compare it with what a card has recorded.
namespace media {

/// How one sample is stored; all are little endian.
enum class SampleFormat
{
    S16, ///< signed 16 bit
    S24, ///< signed 24 bit in three bytes
    S32, ///< signed 32 bit
    F32, ///< float from -1 to 1
};

/// Interleaved sound in memory and what is needed to play it.
struct Pcm
{
    SampleFormat format = SampleFormat::S16;
    int rate = 48000; ///< frames per second
    int channels = 2;
    QByteArray samples;

    int frameSize() const; ///< in bytes
    qint64 frames() const;
    /// The first frames.
    QByteArray first(qint64 count) const;
    WavLayout layout() const;
};

/// The bytes of one sample.
int sampleSize(SampleFormat format);

/// Noise that is the same in every run. No sample of it is zero, so that silence which a device
/// adds at the end can be distinguished from sound and removed.
/// @param frames  how many samples each channel has
/// @param seed    another seed gives other noise
Pcm noise(SampleFormat format, int rate, int channels, int frames, quint32 seed = 1);

/// The noise that most tests play: S16, 48 kHz, stereo.
Pcm noise(int frames, quint32 seed = 1);

/// A tone of 440 Hz: lossy formats keep it, unlike noise.
/// @param frames  how many samples each channel has
Pcm tone(int rate, int channels, int frames);

/// The root of the mean of all squared samples, 1 being full scale.
double loudness(const Pcm& sound);

/// The sound without the silence at its end: without the last frames of zero bytes.
QByteArray withoutTrailingSilence(const QByteArray& samples, int frameSize);

/// The sound without any silence: without all frames of zero bytes. For recordings across a pause:
/// when a machine is too busy to resume in time, the sink plays a period of silence first.
QByteArray withoutSilence(const QByteArray& samples, int frameSize);

/// How recorded samples differ from the expected ones; empty when they are the same. Silence at the
/// end of the recording does not count.
/// @param frameSize  in bytes, of both
QString difference(const QByteArray& recorded, const QByteArray& expected, int frameSize = 4);

/// A WAV file in memory.
QByteArray wavBytes(const Pcm& sound);
/// The same from a program that does not know the length while it writes the header.
QByteArray endlessWavBytes(const Pcm& sound);

} // namespace media

Q_DECLARE_METATYPE(media::SampleFormat)

#endif
