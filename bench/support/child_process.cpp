#include "bench/support/child_process.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace ksw::bench {

ChildProcess::ChildProcess(const std::function<void()>& body) : pid_(::fork()) {
    if (pid_ < 0) {
        std::perror("fork");
        std::exit(2);
    }
    if (pid_ == 0) {
        body();
        ::_exit(0);
    }
}

ChildProcess::~ChildProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

void stayOnOneCpu() {
    cpu_set_t mine;
    cpu_set_t one;
    CPU_ZERO(&mine);
    CPU_ZERO(&one);
    ::sched_getaffinity(0, sizeof mine, &mine);
    int cpu = 0;
    while (cpu < CPU_SETSIZE && !CPU_ISSET(cpu, &mine)) {
        ++cpu;
    }
    CPU_SET(cpu, &one);
    ::sched_setaffinity(0, sizeof one, &one);
}

}  // namespace ksw::bench
