#include <lzo/lzo1x.h>

#include <algorithm>
#include <atomic>

#include <vex/crypt_stream.h>
#include <vex/log.h>

#include "crypto/lzo_chunk.h"
#include "crypto/lzo_encoder.h"

namespace {

constexpr unsigned kSampleLevel = 7;

/// How blocks that do not compress are recognised, for the whole process; all zeros until it is
/// set.
struct Adaptive {
    std::atomic<bool> taken{false};
    std::atomic<uint32_t> ratio{0};
    std::atomic<uint32_t> sample_ratio{0};
    std::atomic<uint32_t> lower_bound{0};
};
Adaptive adaptive;

std::atomic<bool> lzo_ready{false};
std::atomic<bool> lzo_announced{false};

/// liblzo2 has variants for three sizes of the dictionary, tuned over decades; the other sizes have
/// our own encoder.
size_t compressRaw(unsigned level, const unsigned char *in, size_t n, unsigned char *out,
                   void *work) {
    lzo_uint size = 0;
    switch (level) {
        case 11:
            lzo1x_1_11_compress(in, n, out, &size, work);
            return size;
        case 12:
            lzo1x_1_12_compress(in, n, out, &size, work);
            return size;
        case 14:
            lzo1x_1_compress(in, n, out, &size, work);
            return size;
        default:
            return vex::crypto::lzoEncode(level, in, n, out, work);
    }
}

/// True when both samples stay above the set ratio. A sample of no bytes decides nothing.
bool samplesRefuse(const unsigned char *in, size_t n, unsigned char *out, void *work) {
    const uint64_t ratio = adaptive.ratio.load(std::memory_order_relaxed);
    const uint64_t share = adaptive.sample_ratio.load(std::memory_order_relaxed);
    const auto sample = static_cast<size_t>(std::min<uint64_t>(n, share * n / 1000));
    if (ratio > 99 || sample == 0 || sample < adaptive.lower_bound.load(std::memory_order_relaxed))
        return false;
    const uint64_t most = ratio * sample / 100;
    return compressRaw(kSampleLevel, in, sample, out, work) > most &&
           compressRaw(kSampleLevel, in + n - sample, sample, out, work) > most;
}

}  // namespace

int adaptive_compression_init(unsigned ratio, unsigned sampleRatio, unsigned lowerBound) {
    if (adaptive.taken.exchange(true)) return 1;
    adaptive.ratio = ratio;
    adaptive.sample_ratio = sampleRatio;
    adaptive.lower_bound = lowerBound;
    return 0;
}

int lzo_compression_init(void) {
    if (lzo_ready) return 0;
    if (lzo_init() != LZO_E_OK) return VEX_STREAM_DATA_ERROR;
    lzo_ready = true;
    return 0;
}

namespace vex::crypto {

size_t lzoWorkMemory(unsigned level) {
    const size_t own = size_t{4} << level;
    static_assert((size_t{4} << kLzoLowestBits) >= lzoEncoderMemory(kSampleLevel),
                  "samples are compressed with the stream's own work memory");
    if (level == 11) return std::max<size_t>(own, LZO1X_1_11_MEM_COMPRESS);
    if (level == 12) return std::max<size_t>(own, LZO1X_1_12_MEM_COMPRESS);
    if (level == 14) return std::max<size_t>(own, LZO1X_1_MEM_COMPRESS);
    return own;
}

size_t lzoCompress(unsigned level, const unsigned char *in, size_t n, unsigned char *out,
                   void *work) {
    if (samplesRefuse(in, n, out, work)) return 0;
    if (!lzo_announced.exchange(true, std::memory_order_relaxed))
        InfoA(-1, "%s: Using LZOPRO compression", "lzo_compress_raw");
    const size_t size = compressRaw(level, in, n, out, work);
    return size < n ? size : 0;
}

}  // namespace vex::crypto
