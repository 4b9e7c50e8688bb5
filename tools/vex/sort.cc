// "vex sort": sorts files of any size, lines or records, in bounded memory.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "command_options.h"
#include "input_file.h"
#include "output_file.h"
#include "sort_items.h"

namespace tool {
namespace {

constexpr uint64_t kLeastMemory = 1U << 20U;
constexpr uint64_t kMostMerged = 128;  // beyond that an input can need too many files
constexpr uint64_t kLeastBuffer = 4096;
constexpr uint64_t kMostBuffer = 256U << 10U;

struct Request {
    SortKey key;
    uint64_t memory = 0;
    uint64_t merge = 0;
    bool unique = false;
    std::string temp;
};

/// A stream of its own on a descriptor, with a larger buffer than usual.
class SortStream {
public:
    SortStream(int fd, const char *mode, size_t buffer)
        : buffer_(buffer), file_(fdopen(fcntl(fd, F_DUPFD_CLOEXEC, 3), mode)) {
        if (file_) (void)setvbuf(file_.get(), buffer_.data(), _IOFBF, buffer);  // only for speed
    }
    FILE *get() const { return file_.get(); }
    int close() { return file_.close(); }

private:
    std::vector<char> buffer_;
    vex::UniqueFile file_;
};

/// Of equal records the one that was read first is kept.
int keepFirst(void * /*user*/, const void * /*fresh*/, uint64_t fresh, const void * /*present*/,
              uint64_t present) {
    return fresh < present ? 1 : -1;
}

struct ContextDeleter {
    void operator()(BinarySortCtx *ctx) const { BinarySortCtxDestruct(&ctx); }
};

/// Memory: an eighth for the streams of a merge, source and destination; the rest for a batch.
int sortFile(const Request &request, InputFile *in, OutputFile *out) {
    const uint64_t buffer =
        std::clamp(request.memory / 8 / (request.merge + 3), kLeastBuffer, kMostBuffer);
    const uint64_t batch =
        request.memory - std::min(request.memory / 2, buffer * (request.merge + 3));
    SortStream source(in->fd(), "rb", buffer);
    SortStream destination(out->fd(), "wb", buffer);
    if (source.get() == nullptr || destination.get() == nullptr)
        return fail("%s cannot be sorted: %m; close some files and try again", in->name());
    SortItems items(request.key, source.get(), destination.get(), in->size());
    const SortCallbacks callbacks = items.callbacks();
    // numbers tell which of two records with one key came first; equal lines are alike
    const uint32_t flags = request.unique && !request.key.whole() ? BINARY_SORT_NUMBERS : 0;
    const std::unique_ptr<BinarySortCtx, ContextDeleter> ctx(BinarySortCtxConstruct(
        callbacks.read, callbacks.compare, request.unique ? keepFirst : nullptr, callbacks.write,
        callbacks.free, nullptr, &items, std::max<uint64_t>(1, batch / callbacks.least_size), batch,
        request.temp.c_str(), request.merge, buffer, flags));
    if (!ctx) return fail("there is no memory for the sort (%m): give less with --memory");
    const bool sorted = BinarySortFp(ctx.get(), source.get(), destination.get()) == 0;
    if (items.torn())
        return fail("%s ends within a record of %lu bytes: check --record; nothing was sorted",
                    in->name(), request.key.record);
    if (sorted && destination.close() == 0) return kSuccess;
    return fail(
        "%s was not sorted, as told above: make room in '%s' or name another directory "
        "with --temp; %s",
        in->name(), request.temp.c_str(),
        out->direct() ? "what was written so far is incomplete" : "what was there is unchanged");
}

/// Reads "OFF:LEN".
bool parseKey(const char *text, SortKey *key) {
    uint64_t *const parts[] = {&key->offset, &key->length};
    for (size_t i = 0; i < std::size(parts); ++i) {
        if (*text < '0' || *text > '9') return false;
        char *end = nullptr;
        errno = 0;
        *parts[i] = strtoull(text, &end, 10);
        if (errno != 0 || *end != (i == 0 ? ':' : '\0')) return false;
        text = end + 1;
    }
    return key->length > 0 && key->length <= key->record &&
           key->offset <= key->record - key->length;
}

/// Index of the first operand, or -1 when the options are wrong, which was told.
int parse(int argc, char **argv, Request *request) {
    char *key = nullptr;
    char *temp = nullptr;
    CommandOptions options;
    options.add("record", OPT_TYPE_SIZE64, &request->key.record, "0");
    options.add("key", OPT_TYPE_STRING, &key);
    options.add("memory", OPT_TYPE_SIZE64, &request->memory, "256MiB");
    options.flag("unique", &request->unique);
    options.add("merge", OPT_TYPE_NUMBER64, &request->merge, "64");
    options.add("temp", OPT_TYPE_PATH, &temp);
    const int first = options.parse(argc, argv);
    const std::string key_text = key != nullptr ? key : "0:" + std::to_string(request->key.record);
    const bool keyed = key != nullptr;
    const char *const environment = vex_getenv("TMPDIR");
    request->temp = temp != nullptr ? temp : environment != nullptr ? environment : "/tmp";
    if (first < 0) return usageError("wrong options for 'sort'"), -1;
    constexpr uint64_t kMostRecord = 1U << 30U;
    if (request->key.record > kMostRecord) return usageError("--record takes 1 byte to 1 GiB"), -1;
    if (keyed && request->key.record == 0)
        return usageError("--key belongs to records: give their size with --record"), -1;
    if (request->key.record != 0 && !parseKey(key_text.c_str(), &request->key))
        return usageError("--key takes OFF:LEN within the record, not '%s'", key_text.c_str()), -1;
    if (request->memory < kLeastMemory) return usageError("--memory takes 1MiB or more"), -1;
    if (request->merge < 2 || request->merge > kMostMerged)
        return usageError("--merge takes 2 to %lu", kMostMerged), -1;
    return first;
}

}  // namespace

int runSort(int argc, char **argv) {
    Request request;
    const int first = parse(argc, argv, &request);
    if (first < 0) return kUsage;
    if (argc - first != 2)
        return usageError("'sort' takes IN and OUT; '-' is standard input or output");
    InputFile in;
    OutputFile out;
    if (!in.open(argv[first]) || !out.open(argv[first + 1])) return kFailure;
    if (const int status = sortFile(request, &in, &out); status != kSuccess) return status;
    return out.commit() ? kSuccess : kFailure;
}

}  // namespace tool
