// The deserialisers on any bytes: what is accepted writes back to a form that is read as the same
// value.
#include "fuzz.h"

template <typename Number, typename Read, typename Write>
static void integer(const std::vector<uint8_t> &form, bool binary, Read read, Write write) {
    Number value = 1, again = 0;
    size_t used = 0;
    if (read(&value, form.data(), form.size(), binary, &used) == nullptr) return require(value == 0);
    require(used <= form.size());
    char back[24];
    const size_t size = write(back, sizeof back, value, binary);
    require(size > 0 && read(&again, back, size, binary, nullptr) == &again && again == value);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vexLogSetFlags(0, 0);
    // exact copies on the heap, so that reading one byte too far is seen
    const std::vector<uint8_t> form(data, data + size);
    const std::string text = std::string(form.begin(), form.end()).c_str();
    for (const bool binary : {true, false}) {
        integer<uint8_t>(form, binary, VexUint8InitDeserialize, VexUint8Serialize);
        integer<uint32_t>(form, binary, VexUint32InitDeserialize, VexUint32Serialize);
        integer<uint64_t>(form, binary, VexUint64InitDeserialize, VexUint64Serialize);
        VexUID uid;
        if (VexUIDDeserialize(&uid, form.data(), form.size(), binary) > 0) require(VexUIDValidate(&uid) == 1);
        unsigned char digest[32];
        char fingerprint[65];
        if (SHA256DigestDeserialize(digest, form.data(), form.size(), binary) > 0) {
            require(SHA256DigestToString_r(digest, fingerprint, sizeof fingerprint) == fingerprint);
            require(SHA256StringToDigest(fingerprint) != nullptr);
        }
    }
    (void)SHA256StringToDigest(text.c_str());
    std::vector<char> out(size + 1), back(2 * size + 8);
    const auto room = static_cast<unsigned>(out.size());
    const int decoded = Base64Decode(text.c_str(), out.data(), room);
    // Base64 has one text per value, so that what is accepted must come back letter by letter
    if (decoded >= 0) {
        require(Base64Encode(
                    out.data(), static_cast<unsigned>(decoded), back.data(), static_cast<unsigned>(back.size())) >= 0);
        require(text == back.data());
    }
    const int bytes = HexDecode(text.c_str(), out.data(), room);
    require(bytes < 0 || static_cast<size_t>(bytes) * 2 == text.size());
    return 0;
}
