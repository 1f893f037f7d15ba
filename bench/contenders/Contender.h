#ifndef BENCH_CONTENDER_H
#define BENCH_CONTENDER_H

#include <functional>
#include <memory>
#include <string>

/// One player of one item. Making it is what a program does long before it wants sound.
class Playback
{
public:
    Playback() = default;
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;
    virtual ~Playback() = default;

    virtual void start() = 0;
};

/// Called from the event loop, once: whether the item was played to its end.
using Outcome = std::function<void(bool ended)>;

/// What each contender defines in its own way. The rest of the program, main.cpp, is the same for
/// all of them.
namespace contender {

/// What a program does once, before it makes its first player.
void begin(int& argc, char** argv);

/// @param loop  whether the item begins again at its end; not every contender can
std::unique_ptr<Playback> prepare(const std::string& item, const std::string& device, bool loop,
                                  Outcome outcome);

void runLoop();
void quitLoop();

} // namespace contender

#endif
