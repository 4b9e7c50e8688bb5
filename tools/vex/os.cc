// "vex os": the machine, what of it this process gets, and the kind of deployment.
#include <sys/utsname.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "command.h"
#include "command_options.h"
#include "json.h"

namespace tool {
namespace {

struct Facts {
    struct utsname system = {};
    VexProcessorInfo processors = {};
    VexMemoryInfo memory = {};
    VexFsInfo root = {};
    VexMountInfo root_mount = {};
};

int gather(Facts *facts) {
    if (uname(&facts->system) != 0 || VexGetProcessorInfo(&facts->processors) != 0 ||
        VexGetMemoryInfo(&facts->memory) != 0 || VexGetFsInfo("/", &facts->root) != 0 ||
        VexGetMountInfo("/", &facts->root_mount) != 0)
        return fail("the system does not tell about itself (%m): is /proc mounted?");
    return kSuccess;
}

const char *deployment() {
    if (VexIsAppliance() != 0) return "appliance";
    if (VexIsContainer() != 0) return "container";
    if (VexIsCloudDeployment() != 0) return "cloud";
    return VexIsQlsr() != 0 ? "qlsr" : "other";
}

std::string megabytes(uint64_t bytes) {
    return std::to_string(bytes >> 20) + " MB";
}

void line(const char *name, const std::string &value) {
    std::printf("%-13s: %s\n", name, value.c_str());
}

void print(const Facts &facts) {
    const VexProcessorInfo &processors = facts.processors;
    char quota[32] = "unlimited";
    if (processors.quota > 0) (void)snprintf(quota, sizeof quota, "%.2f", processors.quota);
    line("Model", processors.model);
    line("Usable", std::to_string(processors.allowed) + " processors, time of " + quota);
    line("Available", megabytes(facts.memory.available));
    line("Memory limit",
         facts.memory.limit == UINT64_MAX ? "unlimited" : megabytes(facts.memory.limit));
    line("Root", std::string(facts.root_mount.type) + ", " + megabytes(facts.root.available) +
                     " of " + megabytes(facts.root.total) + " available");
    line("Deployment", deployment());
}

void printJson(const Facts &facts) {
    const VexProcessorInfo &processors = facts.processors;
    const VexMemoryInfo &memory = facts.memory;
    std::printf("{\"system\":%s,\"release\":%s,\"machine\":%s,",
                jsonString(facts.system.sysname).c_str(), jsonString(facts.system.release).c_str(),
                jsonString(facts.system.machine).c_str());
    std::printf("\"processors\":{\"online\":%" PRIu32 ",\"allowed\":%" PRIu32
                ",\"quota\":%.2f,\"model\":%s},",
                processors.online, processors.allowed, processors.quota,
                jsonString(processors.model).c_str());
    std::printf("\"memory\":{\"total\":%" PRIu64 ",\"available\":%" PRIu64
                ",\"swap_total\":%" PRIu64 ",\"swap_free\":%" PRIu64 ",\"limit\":%s},",
                memory.total, memory.available, memory.swap_total, memory.swap_free,
                memory.limit == UINT64_MAX ? "null" : std::to_string(memory.limit).c_str());
    std::printf("\"root\":{\"type\":%s,\"total\":%" PRIu64 ",\"available\":%" PRIu64
                ",\"read_only\":%s},\"deployment\":\"%s\"}\n",
                jsonString(facts.root_mount.type).c_str(), facts.root.total, facts.root.available,
                facts.root.read_only != 0 ? "true" : "false", deployment());
}

}  // namespace

int runOs(int argc, char **argv) {
    bool json = false;
    CommandOptions options;
    options.flag("json", &json);
    const int first = options.parse(argc, argv);
    if (first < 0 || first < argc) return usageError("'os' takes no argument but --json");
    Facts facts;
    if (const int status = gather(&facts); status != kSuccess) return status;
    if (json) {
        printJson(facts);
        return kSuccess;
    }
    if (OSTest(nullptr) != 0) return fail("the summary could not be written (%m)");
    print(facts);
    return kSuccess;
}

}  // namespace tool
