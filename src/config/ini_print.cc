// The store's contents on standard output, for debugging.
#include <cstdio>

#include <vex/inifile.h>
#include <vex/text.h>

#include "config/ini_store.h"

namespace vex::config {
namespace {

constexpr const char *kNothingLoaded = "No INI files are currently loaded. :(";

/// A comment or value on one line: line breaks, tabs and quotes as backslash sequences.
String escaped(std::string_view text) {
    const String source(text);
    String out(text.size() * 2 + 1, '\0');
    // it fits: at most two characters for one
    (void)strcpy_esc(out.data(), out.size(), source.c_str());
    out.resize(std::strlen(out.c_str()));
    return out;
}

void printComment(const char *indent, const Text &comment) {
    if (!comment.empty()) std::printf("%s%s\n", indent, escaped(comment.view()).c_str());
}

void printEntries(const File &file, const Section &section) {
    bool any = false;
    for (const EntryId newest : section.order) {
        for (const Entry *entry = file.entry(newest); entry != nullptr;
             entry = file.older(*entry)) {
            if (entry->deleted) continue;
            any = true;
            printComment("\t\t\t", entry->comment);
            std::printf("\t\t\t\"%s\" = \"%s\"\n", escaped(entry->key.view()).c_str(),
                        escaped(entry->value.view()).c_str());
        }
    }
    if (!any) std::printf("\t\t\tNo entries found.\n");
}

void printFile(const File &file, int number) {
    std::printf("\tFile %d: \"%s\" (modified: %s)\n", number, file.path.c_str(),
                file.modified ? "YES" : "no");
    printComment("\t", file.head_comment);
    bool any = false;
    for (const Section &section : file.sections) {
        // the hidden section shows only when it holds something
        if (section.deleted || (section.order.empty() && &section == &file.sections.front()))
            continue;
        any = true;
        printComment("\t\t", section.comment);
        std::printf("\t\tSection \"%s\"\n", escaped(section.name.view()).c_str());
        printEntries(file, section);
    }
    if (!any) std::printf("\t\tNo sections found.\n");
    printComment("\t", file.trailing_comment);
}

}  // namespace
}  // namespace vex::config

using namespace vex::config;

void inifilePrintLoadedFiles() {
    const StoreLock lock;
    std::printf("%s\n", store.first == nullptr ? kNothingLoaded : "Currently loaded INI files:");
    int number = 0;
    for (const File *file = store.first; file != nullptr; file = file->next)
        std::printf("\tFile #%d: char str: \"%s\"\n", ++number, file->path.c_str());
}

void inifilePrintLoadedFileContents() {
    (void)withStore(__func__, -1, [] {
        if (store.first == nullptr) std::printf("%s\n", kNothingLoaded);
        int number = 0;
        for (const File *file = store.first; file != nullptr; file = file->next)
            printFile(*file, ++number);
        return 0;
    });
}
