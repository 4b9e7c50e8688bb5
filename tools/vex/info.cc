#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include "command.h"
#include "command_options.h"
#include "input_file.h"
#include "json.h"
#include "stream_scan.h"

namespace tool {
namespace {

using State = StreamScan::State;

constexpr int kVector = 16;  // the prefix of the only cipher that stores its vector
constexpr int kUnknownCipher = 255;

const char *stateName(State state) {
    switch (state) {
        case State::kUnreadable:
            return "unreadable";
        case State::kEmpty:
            return "empty";
        case State::kForeign:
            return "foreign";
        case State::kOther:
            return "other";
        case State::kDamaged:
            return "damaged";
        case State::kComplete:
            break;
    }
    return "complete";
}

const char *compression(const StreamScan &scan) {
    if (!scan.compressed()) return "none";
    return (scan.magic & VEX_MAGIC_LZO) != 0 ? "lzo" : "deflate";
}

const char *cipher(const StreamScan &scan) {
    if (!scan.encrypted()) return "none";
    if (scan.prefix == StreamScan::kUnknownPrefix)
        return "unknown, since the first block is damaged";
    return scan.prefix == kVector ? "aes-256-ctr" : "blowfish, aes-256-cfb or aes-256-ofb";
}

std::string describe(const StreamScan &scan) {
    std::string text =
        vexMagicDesc(scan.magic, scan.prefix == kVector ? VEX_CIPHER_AES_256_CTR : kUnknownCipher);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

void printJson(const char *name, const StreamScan &scan) {
    printf("{\"file\":%s,\"state\":\"%s\",\"size\":%" PRIu64, jsonString(name).c_str(),
           stateName(scan.state), scan.size);
    if (scan.magic > 0)
        printf(
            ",\"flags\":%d,\"description\":%s,\"encrypted\":%s,\"cipher\":\"%s\","
            "\"compression\":\"%s\",\"window\":%" PRIu64 ",\"blocks\":%" PRIu64
            ",\"payload_min\":%u,\"payload_max\":%u,\"payload\":%" PRIu64,
            scan.magic, jsonString(describe(scan)).c_str(), scan.encrypted() ? "true" : "false",
            cipher(scan), compression(scan), scan.window, scan.blocks, scan.least_payload,
            scan.most_payload, scan.payload);
    if (scan.has_total) printf(",\"total\":%" PRIu64, scan.total);
    if (scan.damage != nullptr)
        printf(",\"damage\":\"%s\",\"damage_offset\":%" PRIu64, scan.damage, scan.damage_offset);
    printf("}\n");
}

void printText(const char *name, const StreamScan &scan) {
    printf("%s:\n  size         %" PRIu64 " bytes\n", name, scan.size);
    if (scan.magic > 0)
        printf("  header       %s (flags 0x%04x, window %" PRIu64 " bytes)\n",
               describe(scan).c_str(), static_cast<unsigned>(scan.magic), scan.window);
    if (scan.magic > 0 && scan.state != State::kOther)
        printf("  encryption   %s\n  compression  %s\n  blocks       %" PRIu64
               ", of %u to %u bytes, %" PRIu64 " bytes in all\n",
               cipher(scan), compression(scan), scan.blocks, scan.least_payload, scan.most_payload,
               scan.payload);
    if (scan.has_total) printf("  data         %" PRIu64 " bytes\n", scan.total);
    if (scan.state == State::kDamaged)
        printf("  state        damaged at byte %" PRIu64 ": %s\n", scan.damage_offset, scan.damage);
    else
        printf("  state        %s\n", stateName(scan.state));
}

/// What is not as it should be is told on standard error too, with the way out.
int judge(const char *name, const StreamScan &scan) {
    switch (scan.state) {
        case State::kUnreadable:
            errno = scan.error;
            return fail("%s cannot be read: %m; check the disk", name);
        case State::kEmpty:
            return fail("%s is empty; fetch it again", name);
        case State::kForeign:
            return fail("%s is no file of this system: %s; check the name", name,
                        describe(scan).c_str());
        case State::kDamaged:
            return fail("%s is damaged at byte %" PRIu64 ": %s; fetch it again", name,
                        scan.damage_offset, scan.damage);
        case State::kOther:
        case State::kComplete:
            break;
    }
    return kSuccess;
}

int inform(const char *path, bool json) {
    InputFile in;
    struct stat status {};
    if (!in.open(path)) return kFailure;
    if (fstat(in.fd(), &status) != 0 || !S_ISREG(status.st_mode))
        return fail("%s is no regular file; store it in one first", in.name());
    const StreamScan scan = scanStream(in.fd());
    if (json)
        printJson(in.name(), scan);
    else
        printText(in.name(), scan);
    return judge(in.name(), scan);
}

}  // namespace

int runInfo(int argc, char **argv) {
    bool json = false;
    CommandOptions options;
    options.flag("json", &json);
    const int first = options.parse(argc, argv);
    if (first < 0) return usageError("info: the options cannot be understood");
    if (first == argc) return usageError("info: name a file");
    int status = kSuccess;
    for (int i = first; i < argc; ++i)
        if (inform(argv[i], json) != kSuccess) status = kFailure;
    return status;
}

}  // namespace tool
