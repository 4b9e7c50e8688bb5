#include <curl/curl.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

#include <vex/storage_http.h>
#include <vex/text.h>

#include "base/eintr.h"
#include "base/sleep.h"
#include "base/unique_fd.h"
#include "clients/storage_exchange.h"
#include "io/replacement_file.h"
#include "log/report.h"

using vex::clients::Exchange;
using vex::clients::Method;
using vex::clients::StorageRequest;

namespace {

constexpr long kLongestPause = 60;
constexpr int kMostRedirects = 5;
constexpr size_t kLongestPlace = 1024;  // of a path, in a log line
constexpr std::string_view kLineEnds("\r\n\0", 3);

struct EasyDeleter {
    void operator()(CURL *curl) const { curl_easy_cleanup(curl); }
};
using Easy = std::unique_ptr<CURL, EasyDeleter>;

struct UrlDeleter {
    void operator()(CURLU *url) const { curl_url_cleanup(url); }
};

/// Scheme, host and port of a URL; empty when it is none.
std::string originOf(const char *text) {
    const std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
    if (url == nullptr || curl_url_set(url.get(), CURLUPART_URL, text, 0) != CURLUE_OK) return {};
    std::string origin;
    for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
        char *value = nullptr;
        if (curl_url_get(url.get(), part, &value, CURLU_DEFAULT_PORT) != CURLUE_OK) return {};
        origin.append(value).append(" ");
        curl_free(value);
    }
    return origin;
}

bool valid(const StorageRequest &request) {
    return request.content_type.find_first_of(kLineEnds) == std::string_view::npos &&
           (request.size == 0 || request.data != nullptr || request.source >= 0);
}

bool mayRepeat(const StorageRequest &request) {
    if (request.method == Method::kPost) return false;
    return request.source < 0 || ::lseek(request.source, 0, SEEK_CUR) >= 0;
}

bool worthRepeating(CURLcode code, bool answered, long status) {
    switch (code) {
        case CURLE_OK:
            return status == 429 || (status >= 502 && status <= 504);
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
            return true;
        default:
            return code == CURLE_OPERATION_TIMEDOUT && !answered;
    }
}

}  // namespace

const std::string *StorageHttpResponse::header(const std::string &name) const {
    for (const auto &[key, value] : headers)
        if (vex_strcasecmp(key.c_str(), name.c_str()) == 0) return &value;
    return nullptr;
}

/// Handles, each with the connection that it keeps, and the headers that all requests carry.
class StorageHttpClient::Impl {
public:
    explicit Impl(const StorageHttpOptions &options) : options_(options) {}

    /// Makes the request, again where that helps; 0, or -1 after one log line.
    int request(const StorageRequest &request, StorageHttpResponse *response) {
        return vex::guard(request.who, -1, [&] {
            if (!valid(request))
                return VEX_FAIL_AS(request.who, EINVAL, EINVAL, -1,
                                   "no data, or a line break in the content type");
            Easy curl = take();
            if (curl == nullptr)
                return VEX_FAIL_AS(request.who, ENOMEM, ENOMEM, -1, "no libcurl handle");
            const int err = repeat(curl.get(), request, response);
            give(std::move(curl));
            if (err == 0) return 0;
            // a query may hold a signature that grants access
            const auto place = static_cast<int>(std::min(request.path.find('?'), kLongestPlace));
            return VEX_FAIL_AS(request.who, err, err, -1, "%.*s: %s",
                               std::min(place, static_cast<int>(request.path.size())),
                               request.path.data(), response->error.c_str());
        });
    }

    void setHeader(const std::string &name, const std::string &value) {
        const std::lock_guard lock(mutex_);
        std::erase_if(headers_, [&](const std::string &line) {
            return line.size() > name.size() && line[name.size()] == ':' &&
                   vex_strncasecmp(line.c_str(), name.c_str(), name.size()) == 0;
        });
        if (!value.empty()) headers_.push_back(name + ": " + value);
    }

private:
    /// The attempts, until one came to something that another could not better; its errno or 0.
    int repeat(CURL *curl, const StorageRequest &request, StorageHttpResponse *response) {
        const off_t start = request.source >= 0 ? ::lseek(request.source, 0, SEEK_CUR) : 0;
        const unsigned retries = mayRepeat(request) ? options_.retries : 0;
        for (unsigned attempt = 0;; ++attempt) {
            bool again = false;
            const int err = attemptOnce(curl, request, response, &again);
            if (!again || attempt == retries) return err;
            vex::sleepMs(1000 * pauseAfter(curl, attempt));
            if (request.source >= 0 && ::lseek(request.source, start, SEEK_SET) < 0) return err;
        }
    }

    /// 0 when an answer came, else an errno.
    int attemptOnce(CURL *curl, const StorageRequest &request, StorageHttpResponse *response,
                    bool *again) {
        std::string url = std::string(options_.base_url).append(request.path);
        const std::vector<std::string> lines = headers();
        for (int redirects = 0;; ++redirects) {
            Exchange exchange(curl, options_, request, response);
            const CURLcode code = exchange.perform(url, lines);
            *again = worthRepeating(code, exchange.answered(), response->status);
            if (code != CURLE_OK) return exchange.errorNumber(code);
            if (redirects == kMostRedirects || !redirected(curl, request, url)) return 0;
        }
    }

    /// Follows the answer to another place of the same server.
    bool redirected(CURL *curl, const StorageRequest &request, std::string &url) const {
        char *target = nullptr;
        const bool followable = request.method == Method::kGet || request.method == Method::kHead;
        if (!followable || curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &target) != CURLE_OK ||
            target == nullptr)
            return false;
        const std::string origin = originOf(target);
        if (origin.empty() || origin != originOf(url.c_str())) return false;
        url = target;
        return true;
    }

    /// Seconds.
    static long pauseAfter(CURL *curl, unsigned attempt) {
        curl_off_t asked = 0;
        (void)curl_easy_getinfo(curl, CURLINFO_RETRY_AFTER, &asked);  // 0 stays when there is none
        const long own = 1L << std::min(attempt, 6U);
        return std::min(asked > 0 ? static_cast<long>(asked) : own, kLongestPause);
    }

    Easy take() {
        const std::lock_guard lock(mutex_);
        if (pool_.empty()) return Easy(curl_easy_init());
        Easy curl = std::move(pool_.back());
        pool_.pop_back();
        return curl;
    }

    void give(Easy curl) {
        curl_easy_reset(curl.get());  // it points into this request
        const std::lock_guard lock(mutex_);
        pool_.push_back(std::move(curl));
    }

    std::vector<std::string> headers() {
        const std::lock_guard lock(mutex_);
        return headers_;
    }

    const StorageHttpOptions options_;
    std::mutex mutex_;
    std::vector<Easy> pool_;
    std::vector<std::string> headers_;
};

StorageHttpClient::StorageHttpClient(const StorageHttpOptions &options)
    : impl_(std::make_unique<Impl>(options)) {}

StorageHttpClient::~StorageHttpClient() = default;

int StorageHttpClient::get(const std::string &path, StorageHttpResponse &response) {
    return impl_->request({.who = "StorageHttpClient::get", .path = path}, &response);
}

int StorageHttpClient::head(const std::string &path, StorageHttpResponse &response) {
    return impl_->request({.who = "StorageHttpClient::head", .method = Method::kHead, .path = path},
                          &response);
}

int StorageHttpClient::del(const std::string &path, StorageHttpResponse &response) {
    return impl_->request(
        {.who = "StorageHttpClient::del", .method = Method::kDelete, .path = path}, &response);
}

int StorageHttpClient::put(const std::string &path, const void *data, size_t n,
                           const std::string &content_type, StorageHttpResponse &response) {
    return impl_->request({.who = "StorageHttpClient::put",
                           .method = Method::kPut,
                           .path = path,
                           .content_type = content_type,
                           .data = static_cast<const char *>(data),
                           .size = n},
                          &response);
}

int StorageHttpClient::post(const std::string &path, const void *data, size_t n,
                            const std::string &content_type, StorageHttpResponse &response) {
    return impl_->request({.who = "StorageHttpClient::post",
                           .method = Method::kPost,
                           .path = path,
                           .content_type = content_type,
                           .data = static_cast<const char *>(data),
                           .size = n},
                          &response);
}

int StorageHttpClient::getToDescriptor(const std::string &path, int fd,
                                       StorageHttpTransfer &transfer,
                                       StorageHttpResponse &response) {
    if (fd < 0 || transfer.length == 0)
        return VEX_FAIL_AS("StorageHttpClient::getToDescriptor", EINVAL, EINVAL, -1,
                           "invalid descriptor or length");
    return impl_->request({.who = "StorageHttpClient::getToDescriptor",
                           .path = path,
                           .sink = fd,
                           .transfer = &transfer},
                          &response);
}

int StorageHttpClient::putFromDescriptor(const std::string &path, int fd, uint64_t size,
                                         const std::string &content_type,
                                         StorageHttpTransfer &transfer,
                                         StorageHttpResponse &response) {
    if (fd < 0)
        return VEX_FAIL_AS("StorageHttpClient::putFromDescriptor", EINVAL, EINVAL, -1,
                           "invalid descriptor");
    return impl_->request({.who = "StorageHttpClient::putFromDescriptor",
                           .method = Method::kPut,
                           .path = path,
                           .content_type = content_type,
                           .source = fd,
                           .size = size,
                           .transfer = &transfer},
                          &response);
}

int StorageHttpClient::getToFile(const std::string &path, const std::string &file,
                                 StorageHttpResponse &response) {
    constexpr char kWho[] = "StorageHttpClient::getToFile";
    return vex::guard(kWho, -1, [&] {
        vex::io::ReplacementFile target(file);
        StorageHttpTransfer transfer;
        if (!target.open(0644))
            return VEX_FAIL_AS(kWho, errno, errno, -1, "could not write %s: %m", file.c_str());
        if (getToDescriptor(path, target.fd(), transfer, response) != 0) return -1;
        if (response.status < 200 || response.status > 299 || target.commit()) return 0;
        return VEX_FAIL_AS(kWho, errno, errno, -1, "could not write %s: %m", file.c_str());
    });
}

int StorageHttpClient::putFromFile(const std::string &path, const std::string &file,
                                   StorageHttpResponse &response) {
    constexpr char kWho[] = "StorageHttpClient::putFromFile";
    const vex::UniqueFd source(
        vex::retryOnEintr([&] { return ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    struct stat status {};
    if (!source || fstat(source.get(), &status) != 0)
        return VEX_FAIL_AS(kWho, errno, errno, -1, "could not read %s: %m", file.c_str());
    if (!S_ISREG(status.st_mode))
        return VEX_FAIL_AS(kWho, EINVAL, EINVAL, -1, "%s is no regular file", file.c_str());
    StorageHttpTransfer transfer;
    return putFromDescriptor(path, source.get(), static_cast<uint64_t>(status.st_size), "",
                             transfer, response);
}

int StorageHttpClient::setHeader(const std::string &name, const std::string &value) {
    constexpr char kWho[] = "StorageHttpClient::setHeader";
    if (name.empty() || name.find(':') != std::string::npos ||
        name.find_first_of(kLineEnds) != std::string::npos ||
        value.find_first_of(kLineEnds) != std::string::npos)
        return VEX_FAIL_AS(kWho, EINVAL, EINVAL, -1, "invalid header name or value");
    return vex::guard(kWho, -1, [&] {
        impl_->setHeader(name, value);
        return 0;
    });
}
