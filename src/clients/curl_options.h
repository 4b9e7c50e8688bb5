#ifndef VEX_CLIENTS_CURL_OPTIONS_H
#define VEX_CLIENTS_CURL_OPTIONS_H

#include <curl/curl.h>

#include <string>

namespace vex::clients {

/// Sets one option of a transfer after another and remembers whether all were taken.
class CurlOptions {
public:
    explicit CurlOptions(CURL *curl) : curl_(curl) {}
    template <typename Value>
    CurlOptions &set(CURLoption option, Value value) {
        good_ = curl_easy_setopt(curl_, option, value) == CURLE_OK && good_;
        return *this;
    }
    /// Asks for a receive buffer of that size. libcurl refuses while it still has the one of a
    /// transfer that found no way to its host, and then goes on with that.
    CurlOptions &setBufferSize(long bytes) {
        (void)curl_easy_setopt(curl_, CURLOPT_BUFFERSIZE, bytes);
        return *this;
    }
    /// Leaves the option as it is where the text is empty.
    CurlOptions &setUnlessEmpty(CURLoption option, const std::string &value) {
        return value.empty() ? *this : set(option, value.c_str());
    }
    bool good() const { return good_; }

private:
    CURL *curl_;
    bool good_ = true;
};

}  // namespace vex::clients

#endif
