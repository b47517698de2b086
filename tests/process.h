// This program again, in a process of its own: a test that needs a peer is the peer too.
#pragma once

#include <android/binder_auto_utils.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvix_test {

// How long to wait for what must happen, against what hangs; ORVIX_PATIENCE multiplies it, as for all tests.
inline std::chrono::milliseconds patience() {
    const char* const times = std::getenv("ORVIX_PATIENCE");
    return std::chrono::milliseconds(static_cast<int64_t>(30'000 * (times ? std::atof(times) : 1)));
}

// Lives until it is killed, at the latest with this object.
class Process {
  public:
    // Its main gets these arguments, and the other end of the channel, which keeps packets apart, as standard input.
    explicit Process(const std::vector<std::string>& arguments) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("socketpair");
        channel.set(ends[0]);
        const ndk::ScopedFileDescriptor other(ends[1]);
        std::vector<std::string> words = {std::filesystem::read_symlink("/proc/self/exe")};
#ifdef EMULATOR  // in a cross build, where the kernel cannot run the program
        words.insert(words.begin(), {EMULATOR, "-L", EMULATOR_ROOT});
#endif
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (std::string& word : words) pointers.push_back(word.data());
        pointers.push_back(nullptr);
        pid = fork();
        if (pid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(other.get(), STDIN_FILENO);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() { kill(); }

    void kill() {
        if (pid <= 0) return;
        signal(SIGKILL);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }
    // Its exit code; -1 if a signal ended it, -2 if it hangs.
    int exitCode() {
        const auto end = std::chrono::steady_clock::now() + patience();
        int status = 0;
        for (; waitpid(pid, &status, WNOHANG) == 0; usleep(10'000)) {
            if (std::chrono::steady_clock::now() > end) return -2;
        }
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void signal(int number) const { ::kill(pid, number); }
    // When it returns, no thread of the process runs any more.
    void stop() const {
        signal(SIGSTOP);
        waitpid(pid, nullptr, WUNTRACED);
    }

    ndk::ScopedFileDescriptor channel;

  private:
    pid_t pid;
};

}  // namespace orvix_test
