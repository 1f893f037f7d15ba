#ifndef TEST_SUPPORT_MEDIA_H
#define TEST_SUPPORT_MEDIA_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// Audio and video files that tests make for themselves, in the test process's folder.
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
};

/// The bytes of one sample.
int sampleSize(SampleFormat format);

/// Noise that is the same in every run. No sample of it is zero, so that silence which a device
/// adds at the end can be told from sound and taken away.
/// @param frames  how many samples each channel has
/// @param seed    another seed gives other noise
Pcm noise(SampleFormat format, int rate, int channels, int frames, quint32 seed = 1);

/// A tone of 440 Hz: what lossy formats keep and noise is not.
/// @param frames  how many samples each channel has
Pcm tone(int rate, int channels, int frames);

/// The root of the mean of all squared samples, 1 being full scale.
double loudness(const Pcm& sound);

/// Writes a WAV file. @return its absolute path
QString writeWav(const QString& name, const Pcm& sound);
/// The same file in memory.
QByteArray wavBytes(const Pcm& sound);

/// Writes any bytes to a file. @return its absolute path
QString writeFile(const QString& name, const QByteArray& bytes);
/// All bytes of a file.
QByteArray readFile(const QString& path);

/// Runs an encoder and waits for it. The test process ends when it fails.
/// @param program    "ffmpeg", "oggenc", "opusenc", "flac" or "lame", for instance
/// @param arguments  all its arguments
void run(const QString& program, const QStringList& arguments);

/// Encodes a WAV file. The format follows from the end of `name`: .ogg, .opus, .flac or .mp3.
/// @return the absolute path of the new file
QString encode(const QString& name, const QString& wav);

/// Encodes WAV files into one container.
/// @param name         its end chooses the container: .mkv or .mp4
/// @param audioCodec   ffmpeg's name of the codec: "libopus", "libvorbis", "libmp3lame" or "flac"
/// @param wavs         one audio stream each, none at all if there is a picture
/// @param withPicture  whether there is a video stream of one second: VP8 in Matroska, MJPEG in
///                     MP4, which GStreamer's base and good plug-ins can decode
/// @return the absolute path of the new file
QString encodeContainer(const QString& name, const QString& audioCodec, const QStringList& wavs,
                        bool withPicture);

/// The sound without the silence at its end: without the last frames of zero bytes.
QByteArray withoutTrailingSilence(const QByteArray& samples, int frameSize);

/// The sound without any silence: without all frames of zero bytes. For what is heard across a
/// pause: when a machine is too busy to resume in time, the sink plays a period of silence first.
QByteArray withoutSilence(const QByteArray& samples, int frameSize);

} // namespace media

#endif
