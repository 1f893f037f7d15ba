// Loads the library named by its argument, and does nothing with it.
// Exits with the number of threads that the loading has started, or with 100 when it failed.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

int main(int argc, char** argv)
{
    if (argc != 2 || !dlopen(argv[1], RTLD_NOW | RTLD_LOCAL)) {
        std::fprintf(stderr, "%s\n", argc == 2 ? dlerror() : "one library is expected");
        return 100;
    }
    const std::filesystem::directory_iterator threads("/proc/self/task");
    // At once, without the exit handlers of libraries whose threads still run.
    std::_Exit(static_cast<int>(std::distance(begin(threads), end(threads))) - 1);
}
