/**
 * @file http.h
 * @ingroup clients
 * One reusable HTTP request over libcurl. For storage services, with their certificates, proxies
 * and retries, see storage_http.h.
 *
 * Order of calls: putData and getData, start, headers, perform; then the response. Nothing here
 * logs but a refused header line: what a transfer came to is libcurl's own result code.
 *
 * @threads a request belongs to one thread at a time. global_init, which _VexLibInit has called
 * already, runs before any request.
 * @standard libcurl's easy interface; RFC 9110 for the methods.
 */
#ifndef VEX_HTTP_H
#define VEX_HTTP_H

#include <stdbool.h>

#include <vex/export.h>

#ifdef __cplusplus

#include <cstddef>
#include <string>
#include <vector>

struct curl_slist;

/** A request, its handle and the last response. */
class VEX_API CurlRequest {
public:
    /** Methods. */
    enum HttpMethod { POST = 0, GET = 1, PUT = 2, DELETE = 3, HEAD = 4, PATCH = 5 };
    /** Memory of the caller, and how far a transfer has got in it. */
    struct CurlBuffer {
        char *data;  /**< the first byte */
        size_t size; /**< bytes at data */
        size_t pos;  /**< bytes sent from it, or received into it */
    };

    /** libcurl's set-up for the process. @return libcurl's code, 0 for success. */
    static int global_init();
    /** Undoes as many calls as global_init was called; more do nothing. */
    static void global_cleanup();

    /** Makes a handle; see easy_init for whether that succeeded. */
    CurlRequest();
    /** easy_cleanup. */
    ~CurlRequest();
    CurlRequest(const CurlRequest &) = delete;
    CurlRequest &operator=(const CurlRequest &) = delete;

    /** Makes libcurl's handle unless it is there. @return 0, or -1 when there is no memory. */
    int easy_init();
    /** Frees the handle, with its connections, and the header lines. */
    void easy_cleanup();

    /**
     * Makes the request ready and drops what the last one left: response, header lines, options.
     * The connection stays open for this one.
     *
     * @param url                http or https, or what else libcurl was built for.
     * @param method             POST, PUT and PATCH send what putData gave, the others no body.
     * @param connect_timeout_s  0 for libcurl's own, 300 seconds.
     * @param timeout_s          for the whole transfer; 0 for none.
     * @param verify_host        false accepts a certificate of another host; for tests only.
     * @param verify_peer        false accepts any certificate; for tests only.
     * @return 0; -1 without a handle and when libcurl refuses an option.
     */
    int start(const std::string &url, HttpMethod method, long connect_timeout_s, long timeout_s,
              bool verify_host, bool verify_peer);

    /**
     * The same with a body to upload, which is copied, and header lines.
     *
     * @param url                as above.
     * @param method             as above.
     * @param body               copied, and sent with POST, PUT and PATCH.
     * @param content_type       sent as the line "Content-Type: ..."; empty for none.
     * @param lines              "Name: value" each, as headers takes them.
     * @param connect_timeout_s  as above.
     * @param timeout_s          as above.
     * @param verify_host        as above.
     * @param verify_peer        as above.
     */
    int start(const std::string &url, HttpMethod method, const std::string &body,
              const std::string &content_type, const std::vector<std::string> &lines,
              long connect_timeout_s, long timeout_s, bool verify_host, bool verify_peer);

    /** Adds "Name: value" lines; a line with a line break inside is left out, with one log line. */
    void headers(const std::string &line);
    /** The same for several lines. */
    void headers(const std::vector<std::string> &lines);

    /**
     * Makes the transfer, with the line "Expect:" added, which keeps libcurl from waiting for
     * "100 Continue".
     *
     * @return libcurl's code: 0 for a complete response, whatever its status; 23 when the caller's
     * download buffer was too small, which holds its head then; -1 without a handle.
     */
    int perform();
    /** The status of the last response, 0 when there was none. */
    long getHttpRespCode();

    /** Gives the next transfer a buffer of the caller's for the body. It serves that one only. */
    void getData(char *buffer, size_t capacity);
    /** The body of the last response, unless it went to a buffer of the caller's. */
    const std::string &getData() const { return body_; }
    /** The same as getData(). */
    const std::string &getDataString() const { return body_; }
    /** The status and header lines of the last response as they came, of each if there were
     * several. */
    const std::string &getHeader() const { return header_; }

    /** Gives the next transfer memory to upload, which must stay until it ends. */
    void putData(const char *buffer, size_t length);

    /** The text with all but letters, digits and "-._~" escaped; empty without a handle. */
    std::string encodeUrl(const std::string &text);

    /** Called by libcurl with size * n received bytes; @p user is a CurlBuffer. @return the bytes
     * that had room. */
    static size_t getDataCallback_(char *block, size_t size, size_t n, void *user);
    /** Called by libcurl for up to size * n bytes to send; @p user is a CurlBuffer. @return the
     * bytes given, 0 at the end. */
    static size_t putDataCallback_(char *block, size_t size, size_t n, void *user);
    /** Called by libcurl with size * n received bytes; @p user is a std::string. @return size * n,
     * 0 without memory. */
    static size_t getStringCallback_(char *block, size_t size, size_t n, void *user);

private:
    bool setCommonOptions(const std::string &url, long connect_timeout_s, long timeout_s);
    bool setMethod(HttpMethod method);

    void *curl_;
    std::string body_, header_;
    CurlBuffer upload_, download_;
    bool use_download_;
    curl_slist *list_;
    std::string own_upload_;  // of the second form of start
};

#endif

VEX_BEGIN_DECLS

/** Stores whether the process is a service, for callers to ask; transfers do not differ. */
VEX_API void CurlRequestSetServiceMode(bool on);
/** What was stored last; false before. */
VEX_API bool CurlRequestGetServiceMode(void);

VEX_END_DECLS

#endif
