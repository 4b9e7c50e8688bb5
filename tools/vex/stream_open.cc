// Feeding a stream's reader.
#include <strings.h>

#include <memory>

#include <vex/crypt_stream.h>
#include <vex/magic.h>

#include "command.h"
#include "input_file.h"
#include "output_file.h"
#include "progress.h"
#include "stream_file.h"

namespace tool {
namespace {

constexpr size_t kBuffer = size_t{1} << 20;

class Opener {
public:
    Opener(InputFile *in, OutputFile *out)
        : in_(in),
          out_(out),
          input_(new unsigned char[kBuffer]),
          output_(new unsigned char[kBuffer]),
          progress_(in->name(), in->size()) {}
    Opener(const Opener &) = delete;
    Opener &operator=(const Opener &) = delete;
    ~Opener() {
        if (stream_.state != nullptr) dcpDecryptEnd(&stream_);
    }

    bool begin(const VexKey *key, unsigned char cipher);
    bool run();

private:
    bool refill();
    bool flush();
    bool endsHere();
    bool failed(int result) const;

    InputFile *in_;
    OutputFile *out_;
    std::unique_ptr<unsigned char[]> input_, output_;
    Progress progress_;
    c_stream_t stream_{};
    bool ended_ = false;  ///< all input is in the buffer
    bool encrypted_ = false;
};

bool Opener::refill() {
    const ssize_t count = in_->read(input_.get(), kBuffer);
    if (count < 0) return false;
    stream_.next_in = input_.get();
    stream_.avail_in = static_cast<uint32_t>(count);
    ended_ = static_cast<size_t>(count) < kBuffer;
    return true;
}

/// Looks at the magic header, so that what needs a key or is no stream is told in plain words.
bool Opener::begin(const VexKey *key, unsigned char cipher) {
    if (!refill()) return false;
    if (stream_.avail_in < VEX_MAGIC_SIZE) {
        fail("%s is no sealed file: it has only %u bytes; check the name", in_->name(),
             stream_.avail_in);
        return false;
    }
    const int flags = vexMagicFromBuffer(input_.get(), nullptr);
    if (flags <= 0) {
        fail("%s is no sealed file, or its beginning is damaged: %s; check the name", in_->name(),
             vexMagicDesc(flags, 0));
        return false;
    }
    encrypted_ = (flags & VEX_MAGIC_ENCRYPTED) != 0;
    if (encrypted_ && key == nullptr) {
        fail("%s is encrypted; give the key that it was sealed with, --key-file FILE", in_->name());
        return false;
    }
    const unsigned char *const next = stream_.next_in;
    const uint32_t available = stream_.avail_in;
    const int result = dcpDecryptInit(&stream_, key == nullptr ? VexKey::Zero() : *key, cipher);
    stream_.next_in = next;
    stream_.avail_in = available;
    stream_.next_out = output_.get();
    stream_.avail_out = kBuffer;
    return result == VEX_STREAM_OK || failed(result);
}

bool Opener::flush() {
    const size_t size = kBuffer - stream_.avail_out;
    stream_.next_out = output_.get();
    stream_.avail_out = kBuffer;
    progress_.update(stream_.total_in);
    return out_->write(output_.get(), size);
}

bool Opener::failed(int result) const {
    const auto offset = static_cast<unsigned long long>(stream_.total_in);
    const char *const name = in_->name();
    if (result == VEX_STREAM_KEY_ERROR) {
        fail("%s: wrong key, or sealed with another cipher; check --key-file and --cipher", name);
    } else if (result == VEX_STREAM_DATA_ERROR && encrypted_ && stream_.total_out == 0) {
        fail(
            "%s: wrong key, or sealed with another cipher, or damaged in its first block; check "
            "--key-file and --cipher, then \"vex info\"",
            name);
    } else if (result == VEX_STREAM_BUFFER_ERROR) {
        fail("%s is cut short: it ends at byte %llu, before its trailer; fetch it again", name,
             offset);
    } else if (result == VEX_STREAM_DATA_ERROR && ended_ && stream_.avail_in == 0) {
        fail(
            "%s is cut short or damaged in its last block, which ends at byte %llu; \"vex info\" "
            "tells more, fetch it again",
            name, offset);
    } else if (result == VEX_STREAM_DATA_ERROR || result == VEX_STREAM_SYSTEM_ERROR) {
        fail("%s is damaged before byte %llu; \"vex info\" tells more, fetch it again", name,
             offset);
    } else {
        fail("%s cannot be opened: %s; see the log", name, dcpCryptError(result));
    }
    return false;
}

/// Bytes behind the trailer belong to no stream: the file is not what was sealed.
bool Opener::endsHere() {
    const unsigned long long end = stream_.total_in;
    if (stream_.avail_in == 0 && !ended_ && !refill()) return false;
    if (stream_.avail_in == 0) return true;
    fail(
        "%s is damaged: there are bytes behind its end at byte %llu; cut them off or fetch it "
        "again",
        in_->name(), end);
    return false;
}

bool Opener::run() {
    int result = VEX_STREAM_OK;
    while (result == VEX_STREAM_OK) {
        if (stream_.avail_in == 0 && !ended_ && !refill()) return false;
        result = dcpDecrypt(&stream_, ended_);
        if (result >= 0 && stream_.avail_out == 0 && !flush()) return false;
    }
    if (result < 0) return failed(result);
    return flush() && endsHere();
}

}  // namespace

int cipherByName(const char *name) {
    for (int type = VEX_CIPHER_BLOWFISH; type <= VEX_CIPHER_AES_256_CTR; ++type)
        if (strcasecmp(name, Cipher::GetCipherDescription(type)) == 0) return type;
    return -1;
}

bool openFile(InputFile *in, OutputFile *out, const VexKey *key, unsigned char cipher) {
    Opener opener(in, out);
    return opener.begin(key, cipher) && opener.run();
}

}  // namespace tool
