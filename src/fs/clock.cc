#include <errno.h>
#include <time.h>

#include <vex/file.h>

namespace {

constexpr uint64_t kMicrosPerSecond = 1000000;
constexpr uint64_t kMicrosPerMilli = 1000;

}  // namespace

uint64_t gethrtime(void) {
    struct timespec now {};
    (void)clock_gettime(CLOCK_REALTIME, &now);  // this clock is always there
    return static_cast<uint64_t>(now.tv_sec) * kMicrosPerSecond +
           static_cast<uint64_t>(now.tv_nsec) / 1000;
}

double hrtime2seconds(uint64_t us) {
    return static_cast<double>(us) / static_cast<double>(kMicrosPerSecond);
}

uint64_t seconds2hrtime(double seconds) {
    const double us = seconds * static_cast<double>(kMicrosPerSecond);
    if (!(us > 0)) return 0;
    return us < 0x1p64 ? static_cast<uint64_t>(us) : UINT64_MAX;
}

uint64_t get_millis(void) {
    return gethrtime() / kMicrosPerMilli;
}

unsigned get_only_ms(void) {
    return static_cast<unsigned>(get_millis() % 1000);
}

long get_seconds_from_now_to_datestring(const char *text) {
    struct tm local {};
    const char *const end = text == nullptr ? nullptr : strptime(text, "%Y-%m-%d %H:%M:%S", &local);
    if (end == nullptr || *end != '\0') {
        errno = EINVAL;
        return 0;
    }
    local.tm_isdst = -1;  // the text does not say; the zone's rules do
    return static_cast<long>(mktime(&local) - time(nullptr));
}
