// Stands in for libFuzzer: runs the target once over every file of the folder named on the command line.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : "")) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
        ++files;
    }
    std::printf("replayed %zu inputs\n", files);
    return files > 0 ? 0 : 1;
}
