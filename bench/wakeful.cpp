#include "wakeful.h"

#include <csignal>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "far_end.h"

namespace bench {
namespace {

[[noreturn]] void turnInPlace(int core, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pin(core);
    const sched_param priority{};
    if (getppid() != parent || sched_setscheduler(0, SCHED_IDLE, &priority) != 0)
        _exit(1);
    volatile bool turning = true;
    while (turning) {
    }
    _exit(0);
}

} // namespace

Wakeful::Wakeful() {
    const pid_t parent = getpid();
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (!CPU_ISSET(core, &allowed))
            continue;
        const pid_t idler = fork();
        if (idler == 0)
            turnInPlace(core, parent);
        if (idler > 0)
            idlers_.push_back(idler);
    }
}

Wakeful::~Wakeful() {
    for (const pid_t idler : idlers_) {
        kill(idler, SIGKILL);
        waitpid(idler, nullptr, 0);
    }
}

} // namespace bench
