#include "children.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>

namespace soak {

pid_t in_a_child(const std::function<int()> &work) {
    const pid_t child = fork();
    require(child >= 0, "fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        int code = 1;
        try {
            code = work();
        } catch (const std::exception &e) {
            std::fprintf(stderr, "soak: %s\n", e.what());
        }
        _exit(code);
    }
    return child;
}

void require_running(pid_t child, const std::string &name) {
    require(waitpid(child, nullptr, WNOHANG) == 0, name + " has ended before its time");
}

void require_good_end(pid_t child, const std::string &name) {
    constexpr useconds_t pause = 10'000;
    int status = 0;
    pid_t ended = 0;
    for (uint32_t waited = 0; ended == 0 && waited < patience * (1'000'000 / pause); ++waited) {
        ended = waitpid(child, &status, WNOHANG);
        if (ended == 0) {
            usleep(pause);
        }
    }
    require(ended != 0, name + " does not end");
    require(ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0, name + " did not end well");
}

uint64_t peak_memory(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    uint64_t size = 0;
    for (std::string word; file >> word;) {
        if (word == "VmHWM:") {
            file >> size;
        }
    }
    require(size > 0, "no memory of process " + std::to_string(process) + " to be seen");
    return size;
}

}  // namespace soak
