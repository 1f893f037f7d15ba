#ifndef TEST_FAULTS_SOURCES_H
#define TEST_FAULTS_SOURCES_H

#include "kit/PipeWriter.h"
#include "kit/PlayerProbe.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMetaType>

#include <optional>

/// Where an item comes from.
enum class Source
{
    Uri,  ///< a file
    Data, ///< the bytes themselves
    Pipe, ///< another process that writes into a FIFO
};
Q_DECLARE_METATYPE(Source)

constexpr Source allSources[] = {Source::Uri, Source::Data, Source::Pipe};

const char* nameOf(Source source);

/// A player of some bytes that come from any source.
class SourcedPlayer
{
public:
    SourcedPlayer(Source source, const QByteArray& bytes, const QString& device);

    /// Starts the player and, for a pipe, the process that writes.
    /// @param manner  how that one writes
    bool start(const PipeWriter::Manner& manner = PipeWriter::Manner());
    /// Plays to the outcome. @return all outcomes, of a stop after it too, without refused pushes
    QStringList finish();

    const QString fifo; ///< of a pipe
    PlayerProbe probe;
    std::optional<PipeWriter> writer;

private:
    const Source source;
    const QByteArray bytes;
    QElapsedTimer sinceStart;
};

/// Plays a short item from a source on a card without faults, as the next player in a process that
/// has seen a fault.
/// @return how that differs from perfect playback; empty when it does not
QString flawOfNextPlayer(Source source);

/// The header of a WAV file as tests make it.
constexpr int wavHeaderSize = 44;

/// How what was heard of S16 stereo sound differs from what should be; empty when it does not.
QString difference(const QByteArray& heard, const QByteArray& expected);

/// Whether a test may take its time: KOVA_LONG_TESTS=1 in the environment.
bool isLong();

/// Whether a sanitizer or an emulator makes every step take many times as long.
bool isMachineSlow();

/// Says what a fault came to and how long that took, for whoever reads the log of a test.
void tellMeasured(const QStringList& outcomes, const QElapsedTimer& since);

#endif
