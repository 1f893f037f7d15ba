// Loads the library that is its first argument, and calls nothing in it.
// Exits with the number of threads that the loading has started. With a logger's name as the second
// argument, exits with 0 if the loading has created that logger. Exits with 100 on any failure.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

static constexpr int failed = 100;

/// Asks log4cplus, which the library has brought along. This program does not link it.
static bool loggerExists(void* library, const char* name)
{
    using Exists = bool (*)(const std::string&);
    void* const function =
        dlsym(library,
              "_ZN9log4cplus6Logger6existsERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    return function && reinterpret_cast<Exists>(function)(name);
}

int main(int argc, char** argv)
{
    void* library = argc > 1 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (!library) {
        std::fprintf(stderr, "%s\n", argc > 1 ? dlerror() : "a library is expected");
        return failed;
    }
    int status = 0;
    if (argc > 2) {
        status = loggerExists(library, argv[2]) ? 0 : failed;
    } else {
        const std::filesystem::directory_iterator threads("/proc/self/task");
        status = static_cast<int>(std::distance(begin(threads), end(threads))) - 1;
    }
    // At once, without the exit handlers of libraries whose threads still run.
    std::_Exit(status);
}
