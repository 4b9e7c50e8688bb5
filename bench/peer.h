// Measures our side and a peer's side in one run and prints one line with the ratio.
#ifndef VEX_BENCH_PEER_H
#define VEX_BENCH_PEER_H

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace bench {

inline double seconds(const std::function<void()> &work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Time that the calling thread really ran, so that a busy machine spoils the figures less.
inline double cpuSeconds(const std::function<void()> &work) {
    const auto now = [] {
        timespec t;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    };
    const double start = now();
    work();
    return now() - start;
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Prints a line about @p count records, or blocks of so many bytes, by time: ours, the peer's, the
/// ratio.
inline void show(size_t count, const char *what, double ours, const char *peer, double theirs,
                 const char *target) {
    std::printf(
        "%-58s ours %10.2f ns, %s %10.2f ns, time ratio %.2f (target %s)\n",
        (std::string(what) + ", " + std::to_string(count) + (count < 1000 ? " B" : " records"))
            .c_str(),
        ours, peer, theirs, ours / theirs, target);
    std::fflush(stdout);
}

/// Runs both sides alternately, @p rounds times each after one warm-up; the work of one round
/// should take a few milliseconds or more. Prints "<name>: ours X, peer Y <unit>, ratio R (target
/// ...)": the ratio is ours / peer of the median rates, or of the median times when @p byTime.
struct Comparison {
    std::string name;
    std::string peer;
    std::string target;
    double units = 1;  ///< bytes or operations per round
    std::string unit = "MB/s";
    double scale = 1e-6;
    bool byTime = false;
    int rounds = 7;
};

inline double compare(const Comparison &c, const std::function<void()> &ours,
                      const std::function<void()> &peer) {
    std::vector<double> mine, theirs;
    ours();
    peer();
    for (int i = 0; i < c.rounds; ++i) {
        mine.push_back(seconds(ours));
        theirs.push_back(seconds(peer));
    }
    const double a = median(mine), b = median(theirs);
    const double ratio = c.byTime ? a / b : b / a;
    if (c.byTime)
        std::printf("%-58s ours %10.2f ns, %s %10.2f ns, time ratio %.2f (target %s)\n",
                    c.name.c_str(), a / c.units * 1e9, c.peer.c_str(), b / c.units * 1e9, ratio,
                    c.target.c_str());
    else
        std::printf("%-58s ours %10.1f, %s %10.1f %s, ratio %.2f (target %s)\n", c.name.c_str(),
                    c.units / a * c.scale, c.peer.c_str(), c.units / b * c.scale, c.unit.c_str(),
                    ratio, c.target.c_str());
    std::fflush(stdout);
    return ratio;
}

}  // namespace bench

#endif
