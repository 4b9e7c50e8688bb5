// A log line to a file, one write each, against spdlog's basic file sink that flushes every line; a
// trace that is off.
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include <vex/log.h>

#include "peer.h"

int main() {
    constexpr int kLines = 50000;
    char pattern[] = "/tmp/log-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return 1;
    const std::string dir = pattern;

    vexLogSet((dir + "/vex.log").c_str(), VEX_LOG_PRESET_LONG | VEX_LOG_DATE | VEX_LOG_SILENT, 0);
    auto peer = spdlog::basic_logger_mt("peer", dir + "/peer.log");
    peer->flush_on(spdlog::level::trace);
    bench::compare(
        {.name = "log line to a file",
         .peer = "spdlog",
         .target = "<= 0.75",
         .units = kLines,
         .byTime = true},
        [] {
            for (int i = 0; i < kLines; ++i)
                ErrorA(5, "%s: could not read block %d of %s", "reader", i, "disk");
        },
        [&] {
            for (int i = 0; i < kLines; ++i)
                peer->error("{}: could not read block {} of {}", "reader", i, "disk");
        });

    constexpr int kTraces = 50000000;
    std::vector<double> times;
    for (int round = 0; round < 5; ++round) {
        times.push_back(bench::seconds([] {
            for (int i = 0; i < kTraces; ++i)
                if (TraceOn()) __Trace("block %d", i);
        }));
    }
    std::printf("%-58s %.2f ns (target < 3)\n", "trace that is off",
                bench::median(times) / kTraces * 1e9);
    std::filesystem::remove_all(dir);
}
