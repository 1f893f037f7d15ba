#ifndef KIT_MEDIA_H
#define KIT_MEDIA_H

#include "kit/Sound.h"

#include <QtCore/QStringList>

/// Audio and video files that tests make for themselves, in the test process's folder.
namespace media {

/// Writes a WAV file. @return its absolute path
QString writeWav(const QString& name, const Pcm& sound);

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

} // namespace media

#endif
