// The value parsers on any text: no crash, an end inside the text, and both widths of one mind.
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vexLogSetFlags(0, 0);
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    const char *end = text.c_str();
    const char *const limit = end + text.size();
    const std::wstring wide(text.begin(), text.end());
    const wchar_t *wide_end = nullptr;

    const uint64_t bytes = strtosize(text.c_str(), &end);
    require(end >= text.c_str() && end <= limit);
    if (vex_utf8_valid(text.data(), text.size()) == 1) {
        require(wcstosize(wide.c_str(), &wide_end) == bytes);
        require(wide_end - wide.c_str() == end - text.c_str());
    }
    char printed[32];
    const char *const exact = sizetostr(printed, sizeof printed, bytes);
    require(exact != nullptr && strtosize(exact, nullptr) == bytes);
    require(strtobool(text.c_str(), &end) == wcstobool(wide.c_str(), nullptr));
    require(strtotimeofday(text.c_str(), &end) < 86400);
    double percent;
    (void)strpercentotvalue(text.c_str(), &percent);

    std::string escaped(2 * text.size() + 1, '\0');
    require(strcpy_esc(escaped.data(), escaped.size(), text.c_str()) != nullptr);
    wchar_t *const copy = static_cast<wchar_t *>(malloc((text.size() + 1) * sizeof(wchar_t)));
    require(copy != nullptr && vex_utf8_to_wcs(text.c_str(), copy, text.size() + 1) >= 0);
    char *const back = vex_wcs_to_utf8_malloced(copy);
    require(back != nullptr && text == back);
    free(back);
    free(copy);
    return 0;
}
