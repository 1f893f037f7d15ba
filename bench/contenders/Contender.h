#ifndef BENCH_CONTENDER_H
#define BENCH_CONTENDER_H

#include <functional>
#include <memory>
#include <string>

/// One player of one item. A program constructs it long before the sound is needed.
class Playback
{
public:
    Playback() = default;
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;
    virtual ~Playback() = default;

    virtual void start() = 0;
};

/// Called once, from the event loop. `ended` is false after a failure.
using Outcome = std::function<void(bool ended)>;

/// The functions that each contender defines. The rest of the program, main.cpp, is the same for
/// all.
namespace contender {

/// The set-up of the process, before the first player.
void begin(int& argc, char** argv);

/// @param loop  whether to repeat the item, which only some contenders support
std::unique_ptr<Playback> prepare(const std::string& item, const std::string& device, bool loop,
                                  Outcome outcome);

void runLoop();
void quitLoop();

} // namespace contender

#endif
