#include "clients/storage_exchange.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>

#include <vex/io.h>

#include "base/ascii.h"
#include "base/eintr.h"
#include "clients/curl_options.h"

namespace vex::clients {
namespace {

constexpr size_t kMostHeaderBytes = 300 << 10;
constexpr long kBuffer = 512 << 10;

bool succeeded(CURL *curl) {
    long status = 0;
    (void)curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);  // 0 stays when there is none
    return status >= 200 && status <= 299;
}

Exchange *exchange(void *self) {
    return static_cast<Exchange *>(self);
}

/// Whether the request is for a part of the body only.
bool asksForRange(const StorageRequest &request) {
    return request.sink >= 0 && request.transfer != nullptr &&
           (request.transfer->offset != 0 || request.transfer->length != UINT64_MAX);
}

}  // namespace

Exchange::~Exchange() {
    if (hashing_) SHA256Finalize(&digest_);
}

CURLcode Exchange::perform(const std::string &url, const std::vector<std::string> &headers) {
    curl_easy_reset(curl_);
    *response_ = {};
    if (request_.source >= 0) source_start_ = ::lseek(request_.source, 0, SEEK_CUR);
    if (request_.transfer != nullptr) {
        request_.transfer->bytes = 0;
        request_.transfer->digest.clear();
        hashing_ = request_.transfer->want_digest;
        if (hashing_) SHA256Initialize(&digest_);
    }
    CURLcode code = CURLE_OUT_OF_MEMORY;
    if (setOptions(url) && setSecurity() && setMethod() && setHeaders(headers))
        code = curl_easy_perform(curl_);
    (void)curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &response_->status);
    response_->curl_code = code;
    if (code != CURLE_OK)
        response_->error = err_ != 0           ? strerrordesc_np(err_)
                           : error_[0] != '\0' ? error_
                                               : curl_easy_strerror(code);
    finishDigest();
    return code;
}

bool Exchange::setOptions(const std::string &url) {
    // of a proxy's answer to CONNECT the caller is told nothing: it is no byte of the server's
    return CurlOptions(curl_)
        .set(CURLOPT_URL, url.c_str())
        .set(CURLOPT_PROTOCOLS_STR, "http,https")
        .set(CURLOPT_NOSIGNAL, 1L)
        .set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L)
        .set(CURLOPT_ERRORBUFFER, error_)
        .set(CURLOPT_CONNECTTIMEOUT, options_.connect_timeout_s)
        .set(CURLOPT_TIMEOUT, options_.timeout_s)
        .setBufferSize(kBuffer)
        .set(CURLOPT_UPLOAD_BUFFERSIZE, kBuffer)
        .set(CURLOPT_HEADERFUNCTION, onHeader)
        .set(CURLOPT_HEADERDATA, this)
        .set(CURLOPT_WRITEFUNCTION, onBody)
        .set(CURLOPT_WRITEDATA, this)
        .set(CURLOPT_READFUNCTION, onUpload)
        .set(CURLOPT_READDATA, this)
        .set(CURLOPT_SEEKFUNCTION, onSeek)
        .set(CURLOPT_SEEKDATA, this)
        .set(CURLOPT_XFERINFOFUNCTION, onProgress)
        .set(CURLOPT_XFERINFODATA, this)
        .set(CURLOPT_NOPROGRESS,
             request_.transfer != nullptr && request_.transfer->progress ? 0L : 1L)
        .good();
}

bool Exchange::setSecurity() {
    // an empty text of the certificates must not be set at all; of the proxy, and of the hosts
    // reached without it, it means none, where nothing would mean what the environment says
    return CurlOptions(curl_)
        .setUnlessEmpty(CURLOPT_CAINFO, options_.ca_file)
        .setUnlessEmpty(CURLOPT_SSLCERT, options_.client_cert)
        .setUnlessEmpty(CURLOPT_SSLKEY, options_.client_key)
        .setUnlessEmpty(CURLOPT_KEYPASSWD, options_.client_key_password)
        .set(CURLOPT_PROXY, options_.proxy.c_str())
        .setUnlessEmpty(CURLOPT_PROXYUSERNAME, options_.proxy_user)
        .setUnlessEmpty(CURLOPT_PROXYPASSWORD, options_.proxy_password)
        .set(CURLOPT_NOPROXY, options_.no_proxy.c_str())
        .set(CURLOPT_SSL_VERIFYHOST, options_.verify_host ? 2L : 0L)
        .set(CURLOPT_SSL_VERIFYPEER, options_.verify_peer ? 1L : 0L)
        .good();
}

bool Exchange::setMethod() {
    CurlOptions options(curl_);
    const auto size = static_cast<curl_off_t>(request_.size);
    switch (request_.method) {
        case Method::kHead:
            return options.set(CURLOPT_NOBODY, 1L).good();
        case Method::kDelete:
            return options.set(CURLOPT_CUSTOMREQUEST, "DELETE").good();
        case Method::kPut:
            return options.set(CURLOPT_UPLOAD, 1L).set(CURLOPT_INFILESIZE_LARGE, size).good();
        case Method::kPost:
            // over a kept connection that dies libcurl would send all of an empty one again
            return options.set(CURLOPT_POST, 1L)
                .set(CURLOPT_POSTFIELDSIZE_LARGE, size)
                .set(CURLOPT_FRESH_CONNECT, size == 0 ? 1L : 0L)
                .good();
        case Method::kGet:
            break;
    }
    if (!asksForRange(request_)) return true;
    const uint64_t first = request_.transfer->offset, length = request_.transfer->length;
    std::string range = std::to_string(first) + "-";
    if (length <= UINT64_MAX - first) range += std::to_string(first + length - 1);
    return options.set(CURLOPT_RANGE, range.c_str()).good();
}

bool Exchange::setHeaders(const std::vector<std::string> &headers) {
    const auto add = [&](const std::string &line) {
        curl_slist *const longer = curl_slist_append(list_.get(), line.c_str());
        if (longer == nullptr) return false;
        (void)list_.release();  // part of the longer one
        list_.reset(longer);
        return true;
    };
    for (const std::string &line : headers)
        if (!add(line)) return false;
    if (!request_.content_type.empty() &&
        !add(std::string("Content-Type: ").append(request_.content_type)))
        return false;
    return add("Expect:") && curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, list_.get()) == CURLE_OK;
}

int Exchange::errorNumber(CURLcode code) const {
    if (err_ != 0) return err_;
    if (code == CURLE_OPERATION_TIMEDOUT) return ETIMEDOUT;
    return code == CURLE_OUT_OF_MEMORY ? ENOMEM : EIO;
}

size_t Exchange::stop(int err) {
    err_ = err;
    return 0;  // fewer bytes than libcurl handed over, which ends the transfer
}

size_t Exchange::onHeader(char *block, size_t size, size_t n, void *self) {
    return exchange(self)->header({block, size * n});
}

size_t Exchange::header(std::string_view line) {
    answered_ = true;
    header_bytes_ += line.size();
    if (header_bytes_ > kMostHeaderBytes) return stop(EFBIG);
    if (line.substr(0, 5) == "HTTP/") {
        response_->headers.clear();  // of an interim answer
        return line.size();
    }
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return line.size();
    try {
        response_->headers.emplace_back(ascii::trim(line.substr(0, colon)),
                                        ascii::trim(line.substr(colon + 1)));
    } catch (const std::bad_alloc &) {
        return stop(ENOMEM);
    }
    return line.size();
}

size_t Exchange::onBody(char *block, size_t size, size_t n, void *self) {
    return exchange(self)->body(block, size * n);
}

size_t Exchange::body(const char *block, size_t size) {
    if (request_.sink >= 0 && succeeded(curl_)) {
        if (!range_held_ && asksForRange(request_) && !holdsTheRange()) return stop(ENOTSUP);
        range_held_ = true;
        if (!writeAll(request_.sink, block, size)) return stop(errno);
        passed(block, size);
        return size;
    }
    if (response_->body.size() + size > options_.max_body) return stop(EFBIG);
    try {
        response_->body.append(block, size);
    } catch (const std::bad_alloc &) {
        return stop(ENOMEM);
    }
    return size;
}

/// Whether what comes is the part that was asked for, and no more of it.
bool Exchange::holdsTheRange() const {
    long status = 0;
    (void)curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
    const std::string *const range = response_->header("Content-Range");
    uint64_t first = 0, last = 0;
    if (status != 206 || range == nullptr ||
        sscanf(range->c_str(), "bytes %" SCNu64 "-%" SCNu64, &first, &last) != 2)
        return false;
    return first == request_.transfer->offset && last >= first &&
           last - first < request_.transfer->length;
}

size_t Exchange::onUpload(char *block, size_t size, size_t n, void *self) {
    return exchange(self)->upload(block, size * n);
}

size_t Exchange::upload(char *block, size_t room) {
    const size_t wanted = std::min<uint64_t>(room, request_.size - uploaded_);
    if (request_.source >= 0) {
        const ssize_t got = safe_read(request_.source, block, static_cast<ssize_t>(wanted));
        if (got < static_cast<ssize_t>(wanted)) {
            err_ = got < 0 ? errno : ENODATA;  // shorter than was announced
            return CURL_READFUNC_ABORT;
        }
    } else if (wanted > 0) {
        memcpy(block, request_.data + uploaded_, wanted);
    }
    uploaded_ += wanted;
    passed(block, wanted);
    return wanted;
}

/// libcurl sends an upload again from its start when a kept connection turned out to be dead.
int Exchange::onSeek(void *self, curl_off_t offset, int origin) {
    Exchange *const one = exchange(self);
    const StorageRequest &request = one->request_;
    // what the server may have acted on already must not reach it a second time
    if (origin != SEEK_SET || offset != 0 || request.method == Method::kPost)
        return CURL_SEEKFUNC_CANTSEEK;
    if (request.source >= 0 &&
        (one->source_start_ < 0 || ::lseek(request.source, one->source_start_, SEEK_SET) < 0))
        return CURL_SEEKFUNC_CANTSEEK;
    one->uploaded_ = 0;
    if (request.transfer != nullptr) request.transfer->bytes = 0;
    if (one->hashing_) {
        SHA256Finalize(&one->digest_);
        SHA256Initialize(&one->digest_);
    }
    return CURL_SEEKFUNC_OK;
}

int Exchange::onProgress(void *self, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal,
                         curl_off_t ulnow) {
    Exchange *const one = exchange(self);
    const bool uploading = one->request_.method == Method::kPut;
    const auto done = static_cast<uint64_t>(uploading ? ulnow : dlnow);
    const auto total = static_cast<uint64_t>(uploading ? ultotal : dltotal);
    try {
        if (one->request_.transfer->progress(done, total)) return 0;
    } catch (const std::exception &) {  // must not pass through libcurl
    }
    one->err_ = ECANCELED;
    return 1;
}

void Exchange::passed(const char *block, size_t size) {
    if (request_.transfer == nullptr) return;
    request_.transfer->bytes += size;
    for (size_t at = 0; hashing_ && at < size;) {
        const size_t piece = std::min<size_t>(size - at, 1U << 30);
        SHA256Append(&digest_, block + at, static_cast<uint32_t>(piece));
        at += piece;
    }
}

void Exchange::finishDigest() {
    if (!hashing_) return;
    char text[65];
    SHA256Finalize(&digest_);
    hashing_ = false;
    request_.transfer->digest = SHA256GetString_r(&digest_, text, sizeof text);
}

}  // namespace vex::clients
