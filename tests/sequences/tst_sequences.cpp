// Every sequence of a client's calls and of events around a player, tried with real players and
// compared with a model of them, step by step: results, states, log lines and signals.
//
//   tst_sequences [SOURCE] [OPTION…]    SOURCE: uri, data or stream; without it all three
//     --length N       all sequences of 1 to N everyday steps
//     --all-length N   all sequences of 1 to N steps of any kind
//     --random N       N sequences of 200 steps, drawn by chance
//     --seed S         the seed of the first of them; each further one has the next
//     --long           --length 6 --all-length 5 --random 10000 and a new seed
//     --real           with GStreamer's real elements and a virtual sound card: only steps after
//                      which it is certain what the player does; --all-length is without effect
//     --run WORD       one sequence, as a failure names it
//
// The long mode is one command: build/dev/bin/tst_sequences --long
// It takes half an hour of one core, most of it for the stream.
//
// Players are tried in a process of their own, so that a crash is a failure like any other. A
// sequence that fails is shortened and shown as a command line that runs it alone.
#include "sequences/Trial.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int randomLength = 200;
constexpr unsigned oneLifeSeconds = 300; // a life that takes so long hangs

using NamedSource = std::pair<std::string, Source>;
const std::vector<NamedSource> sources{
    {"uri", Source::Uri}, {"data", Source::Data}, {"stream", Source::Stream}};

struct Options
{
    std::vector<NamedSource> chosen = sources;
    int length = 4;
    int allLength = 3;
    int random = 300;
    quint32 seed = 1;
    bool real = false;
    std::optional<Sequence> word;
    int current = -1; ///< set in the process that tries players: the descriptor of CurrentSequence
};

/// The sequence that is being tried, in memory that outlives the process that tries it.
class CurrentSequence
{
public:
    /// @param file  of the parent's object, or -1 to make one
    explicit CurrentSequence(int file = -1)
        : descriptor(file >= 0 ? file : ::memfd_create("sequence", 0))
    {
        if (::ftruncate(descriptor, size) != 0) {
            std::abort();
        }
        memory = static_cast<char*>(
            ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
    }

    void set(const Sequence& sequence)
    {
        std::memcpy(memory, sequence.c_str(), sequence.size() + 1);
    }
    Sequence get() const { return memory; }

    const int descriptor;

private:
    static constexpr int size = 4096;
    char* memory;
};

/// The words of a command that runs this program again. In an emulator (see scripts/armhf-run) it
/// is a shell that puts the emulator in front.
std::vector<std::string> commandOfSelf()
{
    std::string path(4096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    if (::getenv("KOVA_EMULATOR")) {
        return {"/bin/sh", "-c", R"(eval exec "$KOVA_EMULATOR" '"$0" "$@"')", path};
    }
    return {path};
}

/// Runs this program in another process. @return whether it succeeds
bool runSelf(std::vector<std::string> arguments, bool quietly = false)
{
    const std::vector<std::string> command = commandOfSelf();
    arguments.insert(arguments.begin(), command.begin(), command.end());
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    std::fflush(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    if (quietly) {
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    pid_t child = 0;
    int status = -1;
    if (::posix_spawn(&child, argv.front(), &actions, nullptr, argv.data(), environ) == 0) {
        ::waitpid(child, &status, 0);
    }
    ::posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}

// ---- In the process that tries players ---------------------------------------------------------

/// Shows a difference, if there is one. @return whether there is none
bool agrees(const QString& difference)
{
    std::fputs(qPrintable(difference), stderr);
    return difference.isEmpty();
}

bool tryAllSequences(const NamedSource& source, const Sequence& steps, int maximum,
                     CurrentSequence& current)
{
    AllSequences all(source.second, steps,
                     [&](const Sequence& sequence) { current.set(sequence); });
    for (int length = 1; length <= maximum; ++length) {
        if (!agrees(all.differenceOfLength(length))) {
            return false;
        }
        std::printf("%s: all %llu sequences of %d out of %s\n", source.first.c_str(),
                    static_cast<unsigned long long>(all.tried), length, steps.c_str());
        std::fflush(stdout);
    }
    return true;
}

bool tryRandomSequences(const NamedSource& source, const Sequence& steps, int count, quint32 seed,
                        CurrentSequence& current)
{
    std::printf("%s: %d random sequences of %d out of %s, seed %u\n", source.first.c_str(), count,
                randomLength, steps.c_str(), seed);
    std::fflush(stdout);
    for (int i = 0; i < count; ++i) {
        const Sequence sequence =
            randomSequence(source.second, steps, randomLength, seed + quint32(i));
        current.set(sequence);
        if (!agrees(differenceOf(source.second, sequence))) {
            return false;
        }
    }
    return true;
}

bool tryPlayers(const NamedSource& source, const Options& options)
{
    if (options.word) {
        ::alarm(oneLifeSeconds);
        return agrees(differenceOf(source.second, *options.word));
    }
    CurrentSequence current(options.current);
    if (options.real) {
        const Sequence certain = certainSteps(source.second);
        return tryAllSequences(source, certain, options.length, current) &&
               tryRandomSequences(source, certain, options.random, options.seed, current);
    }
    const Sequence all = allSteps(source.second);
    return tryAllSequences(source, everydaySteps(source.second), options.length, current) &&
           tryAllSequences(source, all, options.allLength, current) &&
           tryRandomSequences(source, all, options.random, options.seed, current);
}

// ---- In the process that was started -----------------------------------------------------------

std::vector<std::string> aloneArguments(const NamedSource& source, const Options& options,
                                        const Sequence& sequence)
{
    std::vector<std::string> arguments{source.first, "--run", sequence};
    if (options.real) {
        arguments.insert(arguments.begin() + 1, "--real");
    }
    return arguments;
}

void showShortest(const NamedSource& source, const Options& options, const Sequence& failed)
{
    const auto fails = [&](const Sequence& sequence) {
        return !runSelf(aloneArguments(source, options, sequence), true);
    };
    std::fprintf(stderr, "%s fails with %s\n", source.first.c_str(), failed.c_str());
    if (!fails(failed)) {
        std::fprintf(stderr, "Alone it does not fail: it depends on what was run before.\n");
        return;
    }
    const Sequence shortest = shortened(failed, fails);
    runSelf(aloneArguments(source, options, shortest));
    std::fprintf(stderr, "The shortest sequence that fails: %s\nAlone: tst_sequences",
                 inWords(shortest).c_str());
    for (const std::string& argument : aloneArguments(source, options, shortest)) {
        std::fprintf(stderr, " %s", argument.c_str());
    }
    std::fprintf(stderr, "\n");
}

bool supervise(const NamedSource& source, const Options& options)
{
    const CurrentSequence current;
    std::vector<std::string> arguments{source.first,
                                       "--length",
                                       std::to_string(options.length),
                                       "--all-length",
                                       std::to_string(options.allLength),
                                       "--random",
                                       std::to_string(options.random),
                                       "--seed",
                                       std::to_string(options.seed),
                                       "--current",
                                       std::to_string(current.descriptor)};
    if (options.real) {
        arguments.push_back("--real");
    }
    const bool success = runSelf(arguments);
    if (!success) {
        showShortest(source, options, current.get());
    }
    return success;
}

[[noreturn]] void refuse(const std::string& argument)
{
    std::fprintf(stderr, "tst_sequences does not understand: %s\n", argument.c_str());
    std::exit(2);
}

NamedSource sourceNamed(const std::string& name)
{
    for (const NamedSource& source : sources) {
        if (source.first == name) {
            return source;
        }
    }
    refuse(name);
}

Options parse(const std::vector<std::string>& arguments)
{
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const auto value = [&] {
            return ++i < arguments.size() ? arguments[i] : (refuse(argument), argument);
        };
        if (argument == "--length") {
            options.length = std::stoi(value());
        } else if (argument == "--all-length") {
            options.allLength = std::stoi(value());
        } else if (argument == "--random") {
            options.random = std::stoi(value());
        } else if (argument == "--seed") {
            options.seed = quint32(std::stoul(value()));
        } else if (argument == "--real") {
            options.real = true;
        } else if (argument == "--run") {
            options.word = value();
        } else if (argument == "--current") {
            options.current = std::stoi(value());
        } else if (argument == "--long") {
            options.length = 6;
            options.allLength = 5;
            options.random = 10000;
            options.seed = quint32(std::time(nullptr));
        } else {
            options.chosen = {sourceNamed(argument)};
        }
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = parse({argv + 1, argv + argc});
    if (options.current >= 0 || options.word) {
        const TrialWorld world(argc, argv, options.real);
        return tryPlayers(options.chosen.front(), options) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    bool success = true;
    for (const NamedSource& source : options.chosen) {
        success = supervise(source, options) && success;
    }
    return success ? EXIT_SUCCESS : EXIT_FAILURE;
}
