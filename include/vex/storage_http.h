/**
 * @file storage_http.h
 * @ingroup clients
 * An HTTP client for storage services: certificates, proxies, retries, ranges and streams.
 *
 * A client may be used by several threads at once: each request takes a connection from a pool and
 * gives it back, open, for the next one. Only http and https are spoken; redirects are followed for
 * get and head, to the same scheme, host and port only. Proxies come from the options, never from
 * the environment. Neither keys nor passwords are logged.
 *
 * Requests that may be made twice (get, head, put, del) are tried again, up to
 * StorageHttpOptions::retries times, when no connection came about, when the time was up before the
 * first byte of the answer, and for the statuses 429, 502, 503 and 504: after 1, 2, 4 ... seconds,
 * or after what "Retry-After" says, but never more than 60. An upload from a descriptor that cannot
 * seek is tried once. A post that a kept connection swallows fails, for the server may have acted
 * on it.
 *
 * @standard RFC 9110, RFC 6585 (429); libcurl does the work.
 */
#ifndef VEX_STORAGE_HTTP_H
#define VEX_STORAGE_HTTP_H

#ifdef __cplusplus

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vex/export.h>

/** How a client talks to its service. */
struct StorageHttpOptions {
    std::string base_url;    /**< "https://host:port/prefix"; paths are appended as they are */
    std::string ca_file;     /**< PEM; empty for the system's authorities */
    std::string client_cert; /**< PEM file; empty for none */
    std::string client_key;  /**< PEM file of its private key */
    std::string client_key_password; /**< of that file; empty for none */
    std::string proxy;      /**< "http://host:port", "socks5h://host:port" ...; empty for none */
    std::string proxy_user; /**< empty for none */
    std::string proxy_password;  /**< of that user */
    std::string no_proxy;        /**< hosts reached without the proxy, with commas between them */
    long connect_timeout_s = 30; /**< seconds for a connection, TLS included */
    long timeout_s = 300;        /**< seconds for one attempt as a whole; 0 for no limit */
    bool verify_host = true;     /**< the certificate must name the host */
    bool verify_peer = true; /**< the certificate must lead to an authority; false for tests only */
    unsigned retries = 3;    /**< attempts after the first one */
    uint64_t max_body = 256u << 20; /**< bytes that a response may keep in memory */
};

/** What a request came to. */
struct StorageHttpResponse {
    int curl_code = 0; /**< libcurl's, of the last attempt */
    long status = 0;   /**< of HTTP; 0 when no answer came */
    std::string body;  /**< empty where it went to a descriptor; an error's body is here always */
    std::vector<std::pair<std::string, std::string>>
        headers;       /**< of the last answer, as they came */
    std::string error; /**< why the transfer failed; empty when it did not */

    /** The value of a header, its name in any case; NULL when absent. */
    VEX_API const std::string *header(const std::string &name) const;
};

/** How a stream passes. */
struct StorageHttpTransfer {
    uint64_t offset = 0;          /**< of the first byte to download */
    uint64_t length = UINT64_MAX; /**< bytes to download from there, at most */
    /** Called now and then with the bytes that have passed and the total, 0 while that is unknown;
     * false, and a std::exception, end the transfer. */
    std::function<bool(uint64_t done, uint64_t total)> progress;
    bool want_digest = false; /**< compute the digest on the way */
    std::string digest;       /**< SHA-512/256 of what passed, 64 hexadecimal digits */
    uint64_t bytes = 0;       /**< that passed */
};

/** A service, as one or more threads talk to it. */
class VEX_API StorageHttpClient {
public:
    /** Copies the options. Throws std::bad_alloc; nothing else here throws. */
    explicit StorageHttpClient(const StorageHttpOptions &options);
    /** Closes the pool; no request may be under way. */
    ~StorageHttpClient();
    StorageHttpClient(const StorageHttpClient &) = delete;
    StorageHttpClient &operator=(const StorageHttpClient &) = delete;

    /**
     * Makes a GET request.
     *
     * @param path      appended to the base URL; escape it with UrlEncode where needed.
     * @param response  receives the answer; what it held is dropped.
     * @return 0 when an answer came, whatever its status; -1 with EIO (ETIMEDOUT, ENOMEM, EFBIG for
     * a body above max_body, ECANCELED where they fit, EINVAL for a size without data and a content
     * type with a line break), logged once without the path's query, the reason in the response.
     */
    int get(const std::string &path, StorageHttpResponse &response);
    /** get with the method HEAD: no body. */
    int head(const std::string &path, StorageHttpResponse &response);
    /** get with the method DELETE. */
    int del(const std::string &path, StorageHttpResponse &response);
    /**
     * get with the method PUT.
     *
     * @param path          as get.
     * @param data          the body; may be NULL when @p n is 0.
     * @param n             bytes.
     * @param content_type  empty for none.
     * @param response      as get.
     */
    int put(const std::string &path, const void *data, size_t n, const std::string &content_type,
            StorageHttpResponse &response);
    /** put with the method POST; never tried twice. */
    int post(const std::string &path, const void *data, size_t n, const std::string &content_type,
             StorageHttpResponse &response);

    /**
     * Downloads into a descriptor, from where it stands. Only the body of a status from 200 to 299
     * is written. With an offset or length a range is asked for; a server that answers with the
     * whole, or with another range, gives -1 with ENOTSUP; otherwise as get, EINVAL for a negative
     * descriptor or no length, and the errno of a failed write.
     */
    int getToDescriptor(const std::string &path, int fd, StorageHttpTransfer &transfer,
                        StorageHttpResponse &response);
    /** Uploads @p size bytes from a descriptor, from where it stands; as put, and -1 with ENODATA
     * when it ends before, or the errno of a failed read. */
    int putFromDescriptor(const std::string &path, int fd, uint64_t size,
                          const std::string &content_type, StorageHttpTransfer &transfer,
                          StorageHttpResponse &response);

    /** Downloads into a file, which appears, or changes, only when the whole body with a status
     * from 200 to 299 is durable: temporary file, sync, rename, directory sync. */
    int getToFile(const std::string &path, const std::string &file, StorageHttpResponse &response);
    /** Uploads a file's content; -1 with the errno of opening it, EINVAL for what is no regular
     * file. */
    int putFromFile(const std::string &path, const std::string &file,
                    StorageHttpResponse &response);

    /**
     * A header that all later requests carry; an empty value takes it away.
     *
     * @return 0; -1 with EINVAL, logged, for a name that is empty or holds a ':', and for a line
     * break in either.
     */
    int setHeader(const std::string &name, const std::string &value);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

#endif

#endif
