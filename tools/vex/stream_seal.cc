// Feeding a stream's writer. It ends the stream in the call that consumes the last of its input, so
// until the end of the file is known every call gets less room for output than would let it consume
// all that is buffered.
#include <algorithm>
#include <cstring>
#include <memory>

#include <vex/crypt_stream.h>

#include "command.h"
#include "input_file.h"
#include "output_file.h"
#include "progress.h"
#include "stream_file.h"

namespace tool {
namespace {

constexpr size_t kInputBuffer = size_t{4} << 20, kOutputBuffer = size_t{1} << 20;
constexpr size_t kRefillBelow = size_t{512} << 10;
constexpr size_t kBlocksBuffered = 4, kBlocksLeft = 2;
constexpr size_t kBlockHeader = 8;
// what LZO and deflate make of the most compressible data: 1/255 and 1/1032 of it
constexpr size_t kBestLzo = 256, kBestDeflate = 1100;

size_t leastBlockOutput(size_t block, unsigned long flags) {
    if ((flags & VEX_STREAM_NO_COMPRESSION) != 0) return block;
    return block / ((flags & VEX_STREAM_DEFLATE) != 0 ? kBestDeflate : kBestLzo) + kBlockHeader;
}

class Sealer {
public:
    Sealer(InputFile *in, OutputFile *out, const SealSettings &settings)
        : in_(in),
          out_(out),
          block_(
              size_t{1} << (settings.window_bits == 0 ? kDefaultWindowBits : settings.window_bits)),
          least_output_(leastBlockOutput(block_, settings.flags)),
          refill_below_(std::max(kBlocksLeft * block_, kRefillBelow)),
          input_size_(std::max(kBlocksBuffered * block_, kInputBuffer)),
          input_(new unsigned char[input_size_]),
          output_(new unsigned char[kOutputBuffer]),
          progress_(in->name(), in->size()) {}
    Sealer(const Sealer &) = delete;
    Sealer &operator=(const Sealer &) = delete;
    ~Sealer() {
        if (stream_.state != nullptr) dcpEncryptEnd(&stream_);
    }

    bool begin(const VexKey &key, const SealSettings &settings);
    bool run();

private:
    bool refill();
    bool flush();
    uint32_t room() const;
    size_t filled() const { return static_cast<size_t>(stream_.next_out - output_.get()); }

    InputFile *in_;
    OutputFile *out_;
    size_t block_;         ///< a block takes at most this much input
    size_t least_output_;  ///< and puts out at least this much when it is full
    size_t refill_below_;
    size_t input_size_;
    std::unique_ptr<unsigned char[]> input_, output_;
    Progress progress_;
    c_stream_t stream_{};
    bool ended_ = false;  ///< all input is in the buffer
};

bool Sealer::begin(const VexKey &key, const SealSettings &settings) {
    stream_.zlevel = settings.level;
    stream_.zwindow = settings.window_bits;
    const int result = dcpEncryptInit(&stream_, settings.flags, key, settings.cipher);
    if (result < 0) {
        fail("%s cannot be sealed: %s; see the log", in_->name(), dcpCryptError(result));
        return false;
    }
    stream_.next_in = input_.get();
    stream_.next_out = output_.get();
    return true;
}

/// Fills the input buffer behind what is left in it.
bool Sealer::refill() {
    const size_t left = stream_.avail_in;
    std::memmove(input_.get(), stream_.next_in, left);
    const ssize_t count = in_->read(input_.get() + left, input_size_ - left);
    if (count < 0) return false;
    stream_.next_in = input_.get();
    stream_.avail_in += static_cast<uint32_t>(count);
    ended_ = stream_.avail_in < input_size_;
    return true;
}

bool Sealer::flush() {
    const size_t size = filled();
    stream_.next_out = output_.get();
    progress_.update(stream_.total_in);
    return out_->write(output_.get(), size);
}

/// Room for all whole blocks of the buffered input but one: a call that has it leaves input behind.
uint32_t Sealer::room() const {
    const size_t left = kOutputBuffer - filled();
    if (ended_) return static_cast<uint32_t>(left);
    const size_t blocks = stream_.avail_in / block_ - 1;
    return static_cast<uint32_t>(std::min(left, blocks * least_output_));
}

bool Sealer::run() {
    int result = VEX_STREAM_OK;
    while (result == VEX_STREAM_OK) {
        if (!ended_ && stream_.avail_in < refill_below_ && !refill()) return false;
        stream_.avail_out = room();
        result = dcpEncrypt(&stream_);
        if (filled() == kOutputBuffer && !flush()) return false;
    }
    if (result == VEX_STREAM_END) return flush();
    fail("%s cannot be sealed: %s; see the log", in_->name(), dcpCryptError(result));
    return false;
}

}  // namespace

bool sealFile(InputFile *in, OutputFile *out, const VexKey &key, const SealSettings &settings) {
    Sealer sealer(in, out, settings);
    return sealer.begin(key, settings) && sealer.run();
}

}  // namespace tool
