// One attempt of a storage request: what goes out, what comes in, and where it goes.
#ifndef VEX_CLIENTS_STORAGE_EXCHANGE_H
#define VEX_CLIENTS_STORAGE_EXCHANGE_H

#include <curl/curl.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <vex/digest.h>
#include <vex/storage_http.h>

namespace vex::clients {

enum class Method { kGet, kHead, kPut, kPost, kDelete };

/// What a caller asks for; stays the same over all attempts.
struct StorageRequest {
    const char *who = "";  // the public function, for messages
    Method method = Method::kGet;
    std::string_view path = {};
    std::string_view content_type = {};
    const char *data = nullptr;  // upload from memory ...
    int source = -1;             // ... or from a descriptor
    uint64_t size = 0;           // of either
    int sink = -1;               // download into a descriptor, else into the response
    StorageHttpTransfer *transfer = nullptr;
};

struct SlistDeleter {
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};

/// The state that libcurl's callbacks work on.
class Exchange {
public:
    Exchange(CURL *curl, const StorageHttpOptions &options, const StorageRequest &request,
             StorageHttpResponse *response)
        : curl_(curl), options_(options), request_(request), response_(response) {}
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;
    ~Exchange();

    /// Sends the request to @p url; libcurl's code. What came in is in the response.
    CURLcode perform(const std::string &url, const std::vector<std::string> &headers);

    /// The errno that a failed transfer stands for.
    int errorNumber(CURLcode code) const;
    /// Whether any byte of an answer came.
    bool answered() const { return answered_; }

private:
    bool setOptions(const std::string &url);
    bool setSecurity();
    bool setMethod();
    bool setHeaders(const std::vector<std::string> &headers);

    static size_t onHeader(char *block, size_t size, size_t n, void *self);
    static size_t onBody(char *block, size_t size, size_t n, void *self);
    static size_t onUpload(char *block, size_t size, size_t n, void *self);
    static int onSeek(void *self, curl_off_t offset, int origin);
    static int onProgress(void *self, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal,
                          curl_off_t ulnow);

    size_t header(std::string_view line);
    size_t body(const char *block, size_t size);
    bool holdsTheRange() const;
    size_t upload(char *block, size_t room);
    void passed(const char *block, size_t size);
    void finishDigest();
    size_t stop(int err);

    CURL *curl_;
    const StorageHttpOptions &options_;
    const StorageRequest &request_;
    StorageHttpResponse *response_;
    std::unique_ptr<curl_slist, SlistDeleter> list_;
    char error_[CURL_ERROR_SIZE] = "";
    size_t header_bytes_ = 0;
    uint64_t uploaded_ = 0;
    off_t source_start_ = 0;
    bool answered_ = false, hashing_ = false;
    bool range_held_ = false;  // the answer's range is the one that was asked for
    int err_ = 0;              // of our own: why a callback ended the transfer
    SHA256Context digest_ = {};
};

}  // namespace vex::clients

#endif
