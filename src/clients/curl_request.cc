#include <curl/curl.h>
#include <errno.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <memory>

#include <vex/http.h>

#include "clients/curl_options.h"
#include "log/report.h"

using vex::clients::CurlOptions;

namespace {

constexpr long kBuffer = 96 << 10;  // takes a usual block in one call of the system

std::atomic<int> initialised{0};
std::atomic<bool> service_mode{false};

int discard(CURL *, curl_infotype, char *, size_t, void *) {
    return 0;
}

/// libcurl may have to send an upload again from its start, over a fresh connection. A POST it must
/// not: the server may have acted on it.
int seekUpload(void *user, curl_off_t offset, int origin) {
    auto *const buffer = static_cast<CurlRequest::CurlBuffer *>(user);
    if (origin != SEEK_SET || offset < 0 || static_cast<size_t>(offset) > buffer->size)
        return CURL_SEEKFUNC_FAIL;
    buffer->pos = static_cast<size_t>(offset);
    return CURL_SEEKFUNC_OK;
}

}  // namespace

int CurlRequest::global_init() {
    const CURLcode code = curl_global_init(CURL_GLOBAL_ALL);
    if (code == CURLE_OK) ++initialised;
    return code;
}

void CurlRequest::global_cleanup() {
    int calls = initialised.load();
    while (calls > 0 && !initialised.compare_exchange_weak(calls, calls - 1)) {
    }
    if (calls > 0) curl_global_cleanup();
}

CurlRequest::CurlRequest()
    : curl_(nullptr), upload_(), download_(), use_download_(false), list_(nullptr) {
    (void)easy_init();  // start and perform tell that it failed
}

CurlRequest::~CurlRequest() {
    easy_cleanup();
}

int CurlRequest::easy_init() {
    if (curl_ == nullptr) curl_ = curl_easy_init();
    return curl_ != nullptr ? 0 : -1;
}

void CurlRequest::easy_cleanup() {
    curl_easy_cleanup(curl_);
    curl_ = nullptr;
    curl_slist_free_all(list_);
    list_ = nullptr;
}

bool CurlRequest::setCommonOptions(const std::string &url, long connect_timeout_s, long timeout_s) {
    return CurlOptions(curl_)
        .set(CURLOPT_VERBOSE, 1L)
        .set(CURLOPT_DEBUGFUNCTION, discard)
        .set(CURLOPT_URL, url.c_str())
        .set(CURLOPT_NOSIGNAL, 1L)
        .set(CURLOPT_NOPROGRESS, 1L)
        .set(CURLOPT_CONNECTTIMEOUT, connect_timeout_s)
        .set(CURLOPT_TIMEOUT, timeout_s)
        .set(CURLOPT_WRITEFUNCTION, use_download_ ? getDataCallback_ : getStringCallback_)
        .set(CURLOPT_WRITEDATA,
             use_download_ ? static_cast<void *>(&download_) : static_cast<void *>(&body_))
        .set(CURLOPT_HEADERFUNCTION, getStringCallback_)
        .set(CURLOPT_HEADERDATA, &header_)
        .setBufferSize(kBuffer)
        .good();
}

bool CurlRequest::setMethod(HttpMethod method) {
    // option 10024, multipart forms, by number: its name is deprecated. It selects a form, which
    // the post fields behind it turn into a plain POST; the other way round libcurl would follow
    // the 1.
    constexpr auto kForm = static_cast<CURLoption>(10024);
    const auto size = static_cast<curl_off_t>(upload_.size);
    CurlOptions options(curl_);
    switch (method) {
        case POST:
            options.set(kForm, reinterpret_cast<void *>(1))
                .set(CURLOPT_POSTFIELDS, nullptr)
                .set(CURLOPT_READFUNCTION, putDataCallback_)
                .set(CURLOPT_READDATA, &upload_)
                .set(CURLOPT_POSTFIELDSIZE_LARGE, size);
            break;
        case GET:
            break;
        case PUT:
            options.set(CURLOPT_UPLOAD, 1L)
                .set(CURLOPT_READFUNCTION, putDataCallback_)
                .set(CURLOPT_READDATA, &upload_)
                .set(CURLOPT_SEEKFUNCTION, seekUpload)
                .set(CURLOPT_SEEKDATA, &upload_)
                .set(CURLOPT_INFILESIZE_LARGE, size);
            break;
        case DELETE:
            options.set(CURLOPT_CUSTOMREQUEST, "DELETE");
            break;
        case HEAD:
            options.set(CURLOPT_NOBODY, 1L);
            break;
        case PATCH:
            options.set(CURLOPT_CUSTOMREQUEST, "PATCH")
                .set(CURLOPT_POSTFIELDSIZE_LARGE, size)
                .set(CURLOPT_COPYPOSTFIELDS, upload_.data != nullptr ? upload_.data : "");
            break;
        default:
            return false;
    }
    return options.good();
}

int CurlRequest::start(const std::string &url, HttpMethod method, long connect_timeout_s,
                       long timeout_s, bool verify_host, bool verify_peer) {
    if (curl_ == nullptr) return -1;
    curl_easy_reset(curl_);
    curl_slist_free_all(list_);
    list_ = nullptr;
    body_.clear();
    header_.clear();
    const bool good = setCommonOptions(url, connect_timeout_s, timeout_s) && setMethod(method) &&
                      CurlOptions(curl_)
                          .set(CURLOPT_SSL_VERIFYHOST, verify_host ? 2L : 0L)
                          .set(CURLOPT_SSL_VERIFYPEER, verify_peer ? 1L : 0L)
                          .good();
    return good ? 0 : -1;
}

int CurlRequest::start(const std::string &url, HttpMethod method, const std::string &body,
                       const std::string &content_type, const std::vector<std::string> &lines,
                       long connect_timeout_s, long timeout_s, bool verify_host, bool verify_peer) {
    own_upload_ = body;
    putData(own_upload_.data(), own_upload_.size());
    if (start(url, method, connect_timeout_s, timeout_s, verify_host, verify_peer) != 0) return -1;
    if (!content_type.empty()) headers("Content-Type: " + content_type);
    headers(lines);
    return 0;
}

void CurlRequest::headers(const std::string &line) {
    if (line.find_first_of("\r\n") != std::string::npos)
        return VEX_FAIL_AS("CurlRequest::headers", EINVAL, EINVAL, void(),
                           "line break inside a header line");
    curl_slist *const longer = curl_slist_append(list_, line.c_str());
    if (longer == nullptr)
        return VEX_FAIL_AS("CurlRequest::headers", ENOMEM, ENOMEM, void(),
                           "could not allocate memory");
    list_ = longer;
}

void CurlRequest::headers(const std::vector<std::string> &lines) {
    for (const std::string &line : lines) headers(line);
}

int CurlRequest::perform() {
    if (curl_ == nullptr) return -1;
    headers("Expect:");
    CURLcode code = curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, list_);
    if (code == CURLE_OK) code = curl_easy_perform(curl_);
    use_download_ = false;
    download_ = {};  // a transfer without start must not find memory that the caller has freed
    return code;
}

long CurlRequest::getHttpRespCode() {
    long status = 0;
    if (curl_ != nullptr) (void)curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
    return status;
}

void CurlRequest::getData(char *buffer, size_t capacity) {
    download_ = {buffer, buffer != nullptr ? capacity : 0, 0};
    use_download_ = true;
}

void CurlRequest::putData(const char *buffer, size_t length) {
    upload_ = {const_cast<char *>(buffer), buffer != nullptr ? length : 0, 0};
}

std::string CurlRequest::encodeUrl(const std::string &text) {
    // a length of 0 would mean strlen
    if (curl_ == nullptr || text.empty() || text.size() > INT_MAX) return {};
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(curl_, text.data(), static_cast<int>(text.size())), curl_free);
    return escaped != nullptr ? escaped.get() : "";
}

size_t CurlRequest::getDataCallback_(char *block, size_t size, size_t n, void *user) {
    auto *const buffer = static_cast<CurlBuffer *>(user);
    const size_t taken = std::min(size * n, buffer->size - buffer->pos);
    if (taken > 0) memcpy(buffer->data + buffer->pos, block, taken);
    buffer->pos += taken;
    return taken;
}

size_t CurlRequest::putDataCallback_(char *block, size_t size, size_t n, void *user) {
    auto *const buffer = static_cast<CurlBuffer *>(user);
    const size_t given = std::min(size * n, buffer->size - buffer->pos);
    if (given > 0) memcpy(block, buffer->data + buffer->pos, given);
    buffer->pos += given;
    return given;
}

size_t CurlRequest::getStringCallback_(char *block, size_t size, size_t n, void *user) {
    try {
        static_cast<std::string *>(user)->append(block, size * n);
        return size * n;
    } catch (const std::exception &) {
        return 0;  // libcurl ends the transfer with a write error
    }
}

void CurlRequestSetServiceMode(bool on) {
    service_mode = on;
}

bool CurlRequestGetServiceMode() {
    return service_mode;
}
