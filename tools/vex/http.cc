// "vex http": one request to a server, with the storage client.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "command.h"
#include "command_options.h"
#include "input_file.h"
#include "output_file.h"
#include "progress.h"

namespace tool {
namespace {

struct Arguments {
    char *ca_file = nullptr, *cert = nullptr, *key = nullptr, *proxy = nullptr, *header = nullptr,
         *content_type = nullptr;
    uint32_t timeout = 300, retries = 3;
    bool digest = false;
    const char *method = "", *url = "", *file = nullptr;
};

std::string textOf(const char *text) {
    return text != nullptr ? text : "";
}

StorageHttpOptions optionsOf(const Arguments &arguments) {
    StorageHttpOptions options;
    options.base_url = arguments.url;
    options.ca_file = textOf(arguments.ca_file);
    options.client_cert = textOf(arguments.cert);
    options.client_key = textOf(arguments.key);
    options.proxy = textOf(arguments.proxy);
    options.timeout_s = arguments.timeout;
    options.retries = arguments.retries;
    return options;
}

int setHeader(StorageHttpClient *client, const char *header) {
    if (header == nullptr) return kSuccess;
    const char *const colon = std::strchr(header, ':');
    if (colon == nullptr) return usageError("a header has the form 'Name: value'");
    const char *const value = colon + 1 + std::strspn(colon + 1, " ");
    if (client->setHeader(std::string(header, colon), value) == 0) return kSuccess;
    return fail("'%s' is no header: write 'Name: value' on one line", header);
}

/// What an answer means for the exit status.
int judge(const Arguments &arguments, int result, const StorageHttpResponse &response) {
    if (result != 0) return fail("no answer from '%s': %s", arguments.url, response.error.c_str());
    if (response.status >= 200 && response.status < 300) return kSuccess;
    (void)fwrite(response.body.data(), 1, response.body.size(), stderr);
    return fail("'%s' answered with status %ld", arguments.url, response.status);
}

void follow(StorageHttpTransfer *transfer, Progress *progress, bool digest) {
    transfer->want_digest = digest;
    transfer->progress = [progress](uint64_t done, uint64_t) {
        progress->update(done);
        return true;
    };
}

void showDigest(const StorageHttpTransfer &transfer, const char *name) {
    if (transfer.want_digest) (void)fprintf(stderr, "%s  %s\n", transfer.digest.c_str(), name);
}

int get(StorageHttpClient *client, const Arguments &arguments) {
    OutputFile out;
    if (!out.open(arguments.file != nullptr ? arguments.file : "-")) return kFailure;
    StorageHttpTransfer transfer;
    StorageHttpResponse response;
    int result = 0;
    {
        Progress progress("http", 0);
        follow(&transfer, &progress, arguments.digest);
        result = client->getToDescriptor("", out.fd(), transfer, response);
    }
    if (const int status = judge(arguments, result, response); status != kSuccess) return status;
    if (!out.commit()) return kFailure;
    showDigest(transfer, arguments.url);
    return kSuccess;
}

int put(StorageHttpClient *client, const Arguments &arguments) {
    if (arguments.file == nullptr) return usageError("'http put' needs a file");
    InputFile in;
    if (!in.open(arguments.file)) return kFailure;
    if (!in.regular()) return fail("'%s' has no size: put it into a file first", arguments.file);
    StorageHttpTransfer transfer;
    StorageHttpResponse response;
    int result = 0;
    {
        Progress progress("http", in.size());
        follow(&transfer, &progress, arguments.digest);
        result = client->putFromDescriptor("", in.fd(), in.size(), textOf(arguments.content_type),
                                           transfer, response);
    }
    if (const int status = judge(arguments, result, response); status != kSuccess) return status;
    showDigest(transfer, arguments.file);
    return kSuccess;
}

int post(StorageHttpClient *client, const Arguments &arguments) {
    InputFile in;
    if (!in.open(arguments.file != nullptr ? arguments.file : "-")) return kFailure;
    std::string data;
    char block[65536];
    ssize_t got;
    while ((got = in.read(block, sizeof block)) > 0) data.append(block, static_cast<size_t>(got));
    if (got < 0) return kFailure;
    StorageHttpResponse response;
    const int result =
        client->post("", data.data(), data.size(), textOf(arguments.content_type), response);
    const int status = judge(arguments, result, response);
    if (status == kSuccess) (void)fwrite(response.body.data(), 1, response.body.size(), stdout);
    return status;
}

int head(StorageHttpClient *client, const Arguments &arguments) {
    StorageHttpResponse response;
    const int result = client->head("", response);
    if (result == 0) {
        std::printf("%ld\n", response.status);
        for (const auto &[name, value] : response.headers)
            std::printf("%s: %s\n", name.c_str(), value.c_str());
    }
    return judge(arguments, result, response);
}

int remove(StorageHttpClient *client, const Arguments &arguments) {
    StorageHttpResponse response;
    return judge(arguments, client->del("", response), response);
}

constexpr struct {
    const char *name;
    int (*run)(StorageHttpClient *, const Arguments &);
    bool takes_file;
} kMethods[] = {{"get", get, true},
                {"put", put, true},
                {"post", post, true},
                {"head", head, false},
                {"delete", remove, false}};

int request(const Arguments &arguments) {
    for (const auto &method : kMethods) {
        if (std::strcmp(method.name, arguments.method) != 0) continue;
        if (arguments.file != nullptr && !method.takes_file)
            return usageError("'http %s' takes no file", method.name);
        StorageHttpClient client(optionsOf(arguments));
        const int status = setHeader(&client, arguments.header);
        return status == kSuccess ? method.run(&client, arguments) : status;
    }
    return usageError("there is no 'http %s'", arguments.method);
}

}  // namespace

int runHttp(int argc, char **argv) {
    Arguments arguments;
    CommandOptions options;
    options.add("ca-file", OPT_TYPE_PATH, &arguments.ca_file);
    options.add("cert", OPT_TYPE_PATH, &arguments.cert);
    options.add("key", OPT_TYPE_PATH, &arguments.key);
    options.add("proxy", OPT_TYPE_STRING, &arguments.proxy);
    options.add("header", OPT_TYPE_STRING, &arguments.header);
    options.add("content-type", OPT_TYPE_STRING, &arguments.content_type);
    options.add("timeout", OPT_TYPE_NUMBER32, &arguments.timeout);
    options.add("retries", OPT_TYPE_NUMBER32, &arguments.retries);
    options.flag("digest", &arguments.digest);
    // the method stands in front of the options
    if (argc < 2) return usageError("'http' needs a method and a URL");
    arguments.method = argv[1];
    const int first = options.parse(argc - 1, argv + 1);
    if (first < 0 || argc - 1 - first < 1 || argc - 1 - first > 2)
        return usageError("'http %s' needs options, a URL and at most one file", arguments.method);
    arguments.url = argv[1 + first];
    arguments.file = argc - 1 - first == 2 ? argv[2 + first] : nullptr;
    return request(arguments);
}

}  // namespace tool
