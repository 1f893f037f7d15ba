#ifndef FUZZ_PROCESS_H
#define FUZZ_PROCESS_H

#include "kit/Outcomes.h"
#include "kit/TestProcess.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

/// What the fuzz targets share. A target is one file with one function, called for each input:
///
///     FUZZ_TARGET
///     {
///         InputReader input(bytes, size);
///         …
///         return 0;
///     }
///
/// GStreamer is real, but the sound card is an element that takes everything at once. Memory errors
/// and undefined behaviour end the process through the sanitizers, broken promises through
/// require().
#define FUZZ_TARGET                                                                                \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);                      \
    int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)

/// Sets the process up, once; libFuzzer calls it.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/// Ends the process unless `promise` holds.
void require(bool promise, const char* text);

/// Takes an input apart. What is not there reads as zero or empty.
class InputReader
{
public:
    InputReader(const uint8_t* bytes, std::size_t size);

    bool atEnd() const { return position == input.size(); }
    uint8_t byte();
    /// The bytes up to the next zero byte, which is dropped, or all that is left.
    QByteArray text();
    QByteArray bytes(int count);
    QByteArray rest();

private:
    QByteArray input;
    int position = 0;
};

/// Plays an item to its outcome, or stops it when none comes in a moment, and requires what every
/// player promises: exactly one outcome once it was stopped, from the event loop, none after its
/// life, and nothing left of its pipeline.
/// @param player  made by the caller, not yet started
/// @param feed    called between events until it returns false; feeds a pipe, for instance
void playToTheEnd(std::unique_ptr<SimplePlayer> player, const std::function<bool()>& feed = {});

#endif
