// What a measurement costs, and how two are compared: in turns, round by round, so that whatever else the
// machine does meanwhile hits all of them alike.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <vector>

#include "side.h"

namespace bench {

/// Seconds on the clock, and seconds of processor time of this process in all its threads.
struct Cost {
    double wall = 0, cpu = 0;
};

class Stopwatch {
public:
    Cost read() const { return {now(CLOCK_MONOTONIC) - wall_, now(CLOCK_PROCESS_CPUTIME_ID) - cpu_}; }

private:
    static double now(clockid_t clock) {
        timespec time{};
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    double wall_ = now(CLOCK_MONOTONIC);
    double cpu_ = now(CLOCK_PROCESS_CPUTIME_ID);
};

inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Measures every side once per round, the first being the measure of the others. Returns the median over
/// the rounds of each one's ratio to the first in the same round; for the first itself its cost.
inline std::vector<Cost> pair(int rounds, const std::vector<const Side*>& sides,
                              const std::function<Cost(const Side&)>& measure) {
    std::vector<std::vector<double>> wall(sides.size()), cpu(sides.size());
    for (int round = 0; round < rounds; ++round) {
        Cost first;
        for (std::size_t i = 0; i < sides.size(); ++i) {
            const Cost cost = measure(*sides[i]);
            if (i == 0)
                first = cost;
            wall[i].push_back(i == 0 ? cost.wall : cost.wall / first.wall);
            cpu[i].push_back(i == 0 ? cost.cpu : cost.cpu / first.cpu);
        }
    }
    std::vector<Cost> result(sides.size());
    for (std::size_t i = 0; i < sides.size(); ++i)
        result[i] = {median(wall[i]), median(cpu[i])};
    return result;
}

} // namespace bench
