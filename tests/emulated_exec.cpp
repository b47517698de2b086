// For tests that start themselves again as their own peer, in a cross build: the kernel cannot run the program, so the
// emulator is started with it. Linked into the test, these take the place of the C library's functions.

#include <dlfcn.h>
#include <spawn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string realPath(const char* path) {
    char name[PATH_MAX];
    return realpath(path, name) == nullptr ? "" : name;
}

// The command line for the emulator, if path is this program.
class Emulated {
  public:
    Emulated(const char* path, char* const arguments[]) : self(realPath("/proc/self/exe")) {
        static char emulator[] = EMULATOR, flag[] = "-L", root[] = EMULATOR_ROOT;
        if (realPath(path) != self) return;
        words = {emulator, flag, root, self.data()};
        for (char* const* argument = arguments + 1; *argument != nullptr; ++argument) words.push_back(*argument);
        words.push_back(nullptr);
    }
    Emulated(const Emulated&) = delete;
    Emulated& operator=(const Emulated&) = delete;
    bool applies() const { return !words.empty(); }
    char* const* arguments() const { return words.data(); }

  private:
    std::string self;
    std::vector<char*> words;
};

}  // namespace

extern "C" int execv(const char* path, char* const arguments[]) noexcept {
    const Emulated command(path, arguments);
    return command.applies() ? execve(EMULATOR, command.arguments(), environ) : execve(path, arguments, environ);
}

extern "C" int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                           const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
    static const auto next = reinterpret_cast<decltype(&posix_spawn)>(dlsym(RTLD_NEXT, "posix_spawn"));
    const Emulated command(path, arguments);
    return command.applies() ? next(pid, EMULATOR, actions, attributes, command.arguments(), environment)
                             : next(pid, path, actions, attributes, arguments, environment);
}
