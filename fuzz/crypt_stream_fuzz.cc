// The stream reader over any bytes: whatever they are, it ends, and the pieces it gets them in
// change nothing. The first byte picks cipher and piece size, the rest is the stream.
#include "fuzz.h"

namespace {

constexpr unsigned char kKey[VEX_KEY_SIZE] = {1};
constexpr size_t kMostOutput = size_t{1} << 18;

struct Read {
    int result = 0;
    std::vector<unsigned char> bytes;
};

Read readAll(const uint8_t *data, size_t size, unsigned char cipher, size_t piece) {
    Read read;
    c_stream_t stream{};
    require(dcpDecryptInit(&stream, VexKey(kKey), cipher) == 0);
    std::vector<unsigned char> room(piece);
    while (read.result == 0 && read.bytes.size() < kMostOutput) {
        const size_t at = stream.total_in, count = std::min(piece, size - at);
        const std::vector<unsigned char> input(data + at, data + at + count);
        stream.next_in = input.data();
        stream.avail_in = static_cast<uint32_t>(count);
        stream.next_out = room.data();
        stream.avail_out = static_cast<uint32_t>(piece);
        read.result = dcpDecrypt(&stream, at + count == size);
        read.bytes.insert(read.bytes.end(), room.data(), stream.next_out);
    }
    dcpDecryptEnd(&stream);
    return read;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vexLogSetFlags(VEX_LOG_NO_OUTPUT, 0);
    if (size == 0) return 0;
    const auto cipher = static_cast<unsigned char>(data[0] & 3);
    const size_t piece = 1U + (data[0] >> 2);
    ++data;
    --size;
    const Read whole = readAll(data, size, cipher, kMostOutput);
    const Read pieces = readAll(data, size, cipher, piece);
    require(whole.result == 0 || pieces.result == 0 ||
            (whole.result == pieces.result && (whole.result != 1 || whole.bytes == pieces.bytes)));
    uint64_t value = 0;
    int encrypted = 0, compressed = 0;
    const int flags = vexMagicGetCryptSettings(data, static_cast<unsigned>(size), &encrypted, &compressed);
    require(flags <= 0 || vexMagicDecode(nullptr, data, static_cast<int>(size), &value) == flags);
    return 0;
}
