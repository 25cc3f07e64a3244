// Processors that do not fall asleep while something is measured. Waking one takes as long as several of the
// trips that are measured, longer still in a virtual machine, and whether one has to be woken is up to where
// the kernel happens to run its part of a pseudo terminal.
#pragma once

#include <vector>

#include <sys/types.h>

namespace bench {

/// A process a processor that turns in place at the lowest of all priorities, which gives way to everything.
class Wakeful {
public:
    Wakeful();
    Wakeful(const Wakeful&) = delete;
    Wakeful& operator=(const Wakeful&) = delete;
    ~Wakeful();

private:
    std::vector<pid_t> idlers_;
};

} // namespace bench
