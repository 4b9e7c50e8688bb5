// The HTTP request and the storage client against bare libcurl, with nginx as the server; the
// registry table against raw SQLite.
#include <curl/curl.h>
#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <vex/http.h>
#include <vex/sqlite.h>
#include <vex/storage_http.h>

#include "peer.h"

namespace {

constexpr uint64_t kGiB = 1ULL << 30;

/// nginx over a directory, on a fixed loopback port.
class Nginx {
public:
    explicit Nginx(const std::string &dir) {
        std::ofstream(dir + "/conf")
            << "daemon off; pid pid; error_log error; worker_processes 1; events {}\n"
               "http { access_log off; sendfile on; keepalive_requests 1000000; "
               "client_body_temp_path body;\n"
               "proxy_temp_path p; fastcgi_temp_path f; uwsgi_temp_path u; scgi_temp_path s;\n"
               "client_max_body_size 2g; server { listen 127.0.0.1:18089; root www;\n"
               "location / { dav_methods PUT; } } }\n";
        pid_ = fork();
        if (pid_ == 0) {
            execl("/usr/sbin/nginx", "nginx", "-p", dir.c_str(), "-c", (dir + "/conf").c_str(),
                  nullptr);
            _exit(127);
        }
        sleep(1);
    }
    ~Nginx() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    static std::string url(const std::string &path) { return "http://127.0.0.1:18089/" + path; }

private:
    pid_t pid_;
};

size_t append(char *block, size_t size, size_t n, void *text) {
    static_cast<std::string *>(text)->append(block, size * n);
    return size * n;
}
size_t toDescriptor(char *block, size_t size, size_t n, void *fd) {
    return static_cast<size_t>(write(*static_cast<int *>(fd), block, size * n));
}
size_t fromDescriptor(char *block, size_t size, size_t n, void *fd) {
    return static_cast<size_t>(read(*static_cast<int *>(fd), block, size * n));
}

void smallGets(const std::string &dir) {
    CURL *const bare = curl_easy_init();
    for (const size_t size : {200, 4096, 65536}) {
        const std::string name = std::to_string(size), url = Nginx::url(name);
        std::ofstream(dir + "/www/" + name) << std::string(size, 'x');
        constexpr int kRequests = 2000;
        CurlRequest request;
        std::string body;
        bench::compare(
            {.name = "GET of " + name + " B, CurlRequest",
             .peer = "libcurl",
             .target = "<= 1.04",
             .units = kRequests,
             .byTime = true,
             .rounds = 9},
            [&] {
                for (int i = 0; i < kRequests; ++i) {
                    request.start(url, CurlRequest::GET, 5, 5, true, true);
                    request.perform();
                }
            },
            [&] {
                for (int i = 0; i < kRequests; ++i) {
                    body.clear();
                    curl_easy_setopt(bare, CURLOPT_URL, url.c_str());
                    curl_easy_setopt(bare, CURLOPT_NOSIGNAL, 1L);
                    curl_easy_setopt(bare, CURLOPT_WRITEFUNCTION, append);
                    curl_easy_setopt(bare, CURLOPT_WRITEDATA, &body);
                    curl_easy_perform(bare);
                }
            });
    }
    curl_easy_cleanup(bare);
}

void largeStreams(const std::string &dir) {
    const std::string large = dir + "/www/large";
    std::ofstream(large).close();
    std::filesystem::resize_file(large, kGiB);
    const int null = open("/dev/null", O_WRONLY), zero = open("/dev/zero", O_RDONLY);
    StorageHttpOptions options;
    StorageHttpResponse response;
    StorageHttpTransfer transfer;
    CURL *const bare = curl_easy_init();
    bench::Comparison row{.name = "download of 1 GiB to a descriptor",
                          .peer = "libcurl",
                          .target = ">= 0.95",
                          .units = static_cast<double>(kGiB),
                          .rounds = 5};
    options.base_url = Nginx::url("large");
    StorageHttpClient down(options);
    const std::string down_url = options.base_url, up_url = Nginx::url("up");
    bench::compare(
        row, [&] { down.getToDescriptor("", null, transfer, response); },
        [&] {
            int fd = null;
            curl_easy_setopt(bare, CURLOPT_URL, down_url.c_str());
            curl_easy_setopt(bare, CURLOPT_BUFFERSIZE, 512L << 10);
            curl_easy_setopt(bare, CURLOPT_WRITEFUNCTION, toDescriptor);
            curl_easy_setopt(bare, CURLOPT_WRITEDATA, &fd);
            curl_easy_perform(bare);
        });
    options.base_url = up_url;
    StorageHttpClient up(options);
    row.name = "upload of 1 GiB from a descriptor";
    bench::compare(
        row, [&] { up.putFromDescriptor("", zero, kGiB, "", transfer, response); },
        [&] {
            int fd = zero;
            curl_easy_reset(bare);
            curl_slist *const lines = curl_slist_append(nullptr, "Expect:");
            curl_easy_setopt(bare, CURLOPT_URL, up_url.c_str());
            curl_easy_setopt(bare, CURLOPT_HTTPHEADER, lines);
            curl_easy_setopt(bare, CURLOPT_UPLOAD, 1L);
            curl_easy_setopt(bare, CURLOPT_UPLOAD_BUFFERSIZE, 512L << 10);
            curl_easy_setopt(bare, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(kGiB));
            curl_easy_setopt(bare, CURLOPT_READFUNCTION, fromDescriptor);
            curl_easy_setopt(bare, CURLOPT_READDATA, &fd);
            curl_easy_perform(bare);
            curl_slist_free_all(lines);
        });
    curl_easy_cleanup(bare);
    close(null);
    close(zero);
}

std::vector<std::string> registryNames() {
    std::vector<std::string> names;
    for (int i = 0; i < 10000; ++i) names.push_back("registry.name." + std::to_string(i));
    return names;
}

void runRaw(sqlite3_stmt *statement, const std::string &name, const std::string *value) {
    sqlite3_bind_text(statement, 1, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
    if (value != nullptr)
        sqlite3_bind_text(statement, 2, value->data(), static_cast<int>(value->size()),
                          SQLITE_STATIC);
    std::string out;
    if (sqlite3_step(statement) == SQLITE_ROW)
        out = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
    sqlite3_reset(statement);
}

void registry(const std::string &dir) {
    const auto names = registryNames();
    const std::string value(40, 'v');
    SQLiteConnection ours;
    SQLiteException e;
    ours.SetDBFilename(dir + "/ours.db");
    ours.Open(&e);
    ours.CreateRegistryTable(&e);
    sqlite3 *raw = nullptr;
    sqlite3_open((dir + "/raw.db").c_str(), &raw);
    sqlite3_exec(raw, "CREATE TABLE registry (name TEXT PRIMARY KEY, value TEXT)", nullptr, nullptr,
                 nullptr);
    constexpr char kGet[] = "SELECT value FROM registry WHERE name=?";
    constexpr char kSet[] = "INSERT OR REPLACE INTO registry(name, value) VALUES(?,?)";
    for (const bool set : {true, false}) {
        sqlite3_stmt *kept = nullptr;
        sqlite3_prepare_v2(raw, set ? kSet : kGet, -1, &kept, nullptr);
        const auto mine = [&] {
            ours.SetAutoCommit(false, &e);
            for (const auto &name : names)
                set ? (void)ours.SetRegistryItem(name, value, &e)
                    : (void)ours.GetRegistryItem(name, &e);
            ours.Commit(&e);
        };
        const auto theirs = [&](bool keep) {
            sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
            for (const auto &name : names) {
                sqlite3_stmt *statement = kept;
                if (!keep) sqlite3_prepare_v2(raw, set ? kSet : kGet, -1, &statement, nullptr);
                runRaw(statement, name, set ? &value : nullptr);
                if (!keep) sqlite3_finalize(statement);
            }
            sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr);
        };
        bench::Comparison row{
            .name = std::string("registry ") + (set ? "set" : "get") + ", 10,000 names",
            .peer = "kept statements",
            .target = "<= 1.1",
            .units = static_cast<double>(names.size()),
            .byTime = true,
            .rounds = 9};
        bench::compare(row, mine, [&] { theirs(true); });
        row.peer = "preparing each time";
        row.target = "<= 0.45";
        bench::compare(row, mine, [&] { theirs(false); });
        sqlite3_finalize(kept);
    }
    sqlite3_close(raw);
}

}  // namespace

int main() {
    char pattern[] = "/tmp/clients-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return 1;
    const std::string dir = pattern;
    chmod(pattern, 0777);
    std::filesystem::create_directories(dir + "/www");
    chmod((dir + "/www").c_str(), 0777);
    CurlRequest::global_init();
    registry(dir);
    {
        const Nginx nginx(dir);
        smallGets(dir);
        largeStreams(dir);
    }
    std::filesystem::remove_all(dir);
}
