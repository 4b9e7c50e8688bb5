// Lists that may be longer than memory: sealed files of some megabytes, "<prefix>-000000" and so
// on.
#ifndef VAULT_LISTS_H
#define VAULT_LISTS_H

#include "catalogue.h"

namespace vault {

class ListWriter {
public:
    ListWriter(Catalogue *catalogue, std::string prefix)
        : catalogue_(catalogue), prefix_(std::move(prefix)) {}

    Bytes content;  ///< where the items are put
    /// Says that an item is complete: no item lies in two files.
    void endItem() {
        if (content.size() >= kSealedBytes) finish();
    }
    void finish() {
        if (content.empty()) return;
        char number[16];
        snprintf(number, sizeof number, "-%06u", files_++);
        const std::string name = prefix_ + number;
        catalogue_->addFile(name, catalogue_->sealer.write(catalogue_->path(name), content));
        content.clear();
    }

private:
    Catalogue *catalogue_;
    std::string prefix_;
    unsigned files_ = 0;
};

/// Reads the items of all lists whose names begin with a prefix.
class ListReader {
public:
    ListReader(Catalogue *catalogue, const std::string &prefix)
        : catalogue_(catalogue), names_(catalogue->files(prefix)) {}

    /// Where the next item begins; nullptr at the end.
    Cursor *next() {
        if (cursor_.left == 0) {
            if (file_ == names_.size()) return nullptr;
            const std::string &name = names_[file_++];
            done(catalogue_->sound(name));
            content_ = catalogue_->sealer.read(catalogue_->path(name));
            cursor_ = {content_.data(), content_.size()};
        }
        return &cursor_;
    }

private:
    Catalogue *catalogue_;
    std::vector<std::string> names_;
    size_t file_ = 0;
    Bytes content_;
    Cursor cursor_;
};

}  // namespace vault

#endif
