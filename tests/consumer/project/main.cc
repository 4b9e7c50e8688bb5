#include <cstdio>
#include <cstring>

#include <vex/vex.h>

int main() {
    zqutil::LibAutoInit library("consumer");
    char fingerprint[65];
    if (SHA256FromData_r("abc", 3, fingerprint, sizeof fingerprint) == nullptr) return 1;
    std::puts(fingerprint);
    return std::strncmp(fingerprint, "53048e26", 8) == 0 ? 0 : 1;
}
