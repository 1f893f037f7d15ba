#ifndef FUZZ_PROCESS_H
#define FUZZ_PROCESS_H

#include "kit/Outcomes.h"
#include "kit/TestProcess.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstdint>
#include <functional>
#include <memory>

#include <fuzzer/FuzzedDataProvider.h>

/// What the fuzz targets share. A target is one file with one function, called for each input:
///
///     FUZZ_TARGET
///     {
///         FuzzedDataProvider input(bytes, size); // takes numbers from the end, texts from the
///         front … return 0;
///     }
///
/// GStreamer is real, but the sound card is an element that accepts everything at once. Sanitizers
/// end the process for memory errors and undefined behaviour, require() for a violated condition.
#define FUZZ_TARGET                                                                                \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);                      \
    int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)

/// Sets the process up; libFuzzer calls it once.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/// Ends the process unless the condition holds.
/// @param text  the condition in words
void require(bool condition, const char* text);

/// A random text of the input, which ends at a backslash and the byte that follows it.
QByteArray consumeText(FuzzedDataProvider& input);
/// All bytes of the input that are left.
QByteArray consumeRest(FuzzedDataProvider& input);

/// Plays an item to its outcome, or stops it when there is none in time, and requires what every
/// player guarantees: exactly one outcome once it was stopped, from the event loop, none after its
/// destruction, and no elements left of its pipeline.
/// @param player  not yet started
/// @param feed    called between events until it returns false; feeds a FIFO, for instance
void playToTheEnd(std::unique_ptr<SimplePlayer> player, const std::function<bool()>& feed = {});

#endif
