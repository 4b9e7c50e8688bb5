#include <errno.h>
#include <openssl/rand.h>
#include <pthread.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include <vex/random.h>

#include "log/report.h"

namespace {

/// The process-wide state of the random source: the turn to draw.
struct RandomState {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_once_t fork_handlers = PTHREAD_ONCE_INIT;
};
RandomState state;

// neither fails on a valid default mutex
void lockState() {
    (void)pthread_mutex_lock(&state.mutex);
}
void unlockState() {
    (void)pthread_mutex_unlock(&state.mutex);
}

/// A child must not inherit the mutex from a thread that it does not have. Without memory for the
/// handlers it merely risks a wait.
void installForkHandlers() {
    (void)pthread_atfork(lockState, unlockState, unlockState);
}

/// One turn at the generator. The destructor gives it back when the thread is cancelled, too.
class Turn {
public:
    Turn() {
        (void)pthread_once(&state.fork_handlers, installForkHandlers);  // cannot fail
        lockState();
    }
    ~Turn() { unlockState(); }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;
};

bool draw(void *buffer, size_t size) {
    Turn turn;
    auto *to = static_cast<unsigned char *>(buffer);
    while (size > 0) {
        const size_t piece = std::min<size_t>(size, INT_MAX);
        if (RAND_bytes(to, static_cast<int>(piece)) != 1) return false;
        to += piece;
        size -= piece;
    }
    return true;
}

/// Fills a number; zero when the generator fails.
template <typename Number>
bool drawNumber(const char *who, Number *number) {
    if (draw(number, sizeof *number)) return true;
    *number = 0;
    return VEX_FAIL_AS(who, EIO, EIO, false, "no random bytes could be drawn");
}

}  // namespace

int RandomGetBytes(void *buffer, size_t n) {
    if (n == 0) return 0;
    if (buffer == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (draw(buffer, n)) return 0;
    std::memset(buffer, 0, n);
    return VEX_FAIL(EIO, -1, "no random bytes could be drawn");
}

uint32_t RandomUint32(void) {
    uint32_t number;
    (void)drawNumber(__func__, &number);  // a failure reads as 0
    return number;
}

uint64_t RandomUint64(void) {
    uint64_t number;
    (void)drawNumber(__func__, &number);  // a failure reads as 0
    return number;
}

int RandomRange(int low, int high) {
    if (low > high) std::swap(low, high);
    const uint64_t span = static_cast<uint64_t>(int64_t{high} - low) + 1;
    // Of the 2^32 numbers the last 2^32 mod span would favour the low results, so they are drawn
    // again.
    const uint64_t usable = (uint64_t{1} << 32) / span * span;
    uint32_t number;
    do {
        if (!drawNumber(__func__, &number)) return low;
    } while (number >= usable);
    return static_cast<int>(low + static_cast<int64_t>(number % span));
}
