#include "config/ini_file.h"

#include "base/adler32.h"

namespace vex::config {

uint32_t pathChecksum(std::string_view path) {
    return adler32(kAdler32Start, path.data(), path.size());
}

File::File(std::string_view file_path) : path(file_path), checksum(pathChecksum(file_path)) {
    (void)obtain(Text::borrowed(kHiddenSection));
}

Section *File::find(std::string_view name) {
    const uint32_t at = index_.find(
        nameHash(name), [&](uint32_t i) { return sameName(sections[i].name.view(), name); });
    return at == NameIndex::kNone ? nullptr : &sections[at];
}

EntryId File::newest(const Section &section, std::string_view key, uint32_t hash) const {
    return section.index.find(hash,
                              [&](EntryId id) { return sameName(entries_[id].key.view(), key); });
}

Entry *File::find(std::string_view section, std::string_view key) {
    const Section *found = find(section);
    if (found == nullptr || found->deleted) return nullptr;
    const EntryId id = newest(*found, key, nameHash(key));
    return id == kNoEntry || entries_[id].deleted ? nullptr : &entries_[id];
}

Section &File::obtain(Text name) {
    if (Section *found = find(name.view()); found != nullptr) {
        found->deleted = false;
        return *found;
    }
    const uint32_t hash = nameHash(name.view());
    sections.emplace_back();
    try {
        index_.add(hash, static_cast<uint32_t>(sections.size() - 1));
    } catch (const std::bad_alloc &) {
        sections.pop_back();
        throw;
    }
    sections.back().name = std::move(name);
    return sections.back();
}

EntryId File::append(Section &section, Text key, uint32_t hash) {
    // what can fail comes first; an entry that no section lists does no harm
    if (section.order.size() == section.order.capacity())
        section.order.reserve(section.order.empty() ? 8 : section.order.size() * 2);
    const auto id = static_cast<EntryId>(entries_.size());
    entries_.emplace_back();
    section.index.add(hash, id);
    entries_[id].key = std::move(key);
    entries_[id].slot = static_cast<uint32_t>(section.order.size());
    section.order.push_back(id);
    return id;
}

void File::push(Section &section, Text key, Text value, Text comment) {
    const uint32_t hash = nameHash(key.view());
    const EntryId before = newest(section, key.view(), hash);
    EntryId id = static_cast<EntryId>(entries_.size());
    if (before == kNoEntry) {
        id = append(section, std::move(key), hash);
    } else {
        entries_.emplace_back();
        entries_[id].key = std::move(key);
        entries_[id].older = before;
        entries_[id].slot = entries_[before].slot;
        section.index.replace(hash, before, id);
        section.order[entries_[id].slot] = id;
    }
    entries_[id].value = std::move(value);
    entries_[id].comment = std::move(comment);
}

void File::set(std::string_view section, std::string_view key, const char *value) {
    Text text = Text::copied(value != nullptr ? value : "");
    Section &target = obtain(Text::copied(section));
    const uint32_t hash = nameHash(key);
    EntryId id = newest(target, key, hash);
    if (id == kNoEntry) id = append(target, Text::copied(key), hash);
    entries_[id].value = std::move(text);
    entries_[id].deleted = false;
    modified = true;
}

void File::eraseChain(EntryId id) {
    for (; id != kNoEntry; id = entries_[id].older) entries_[id].deleted = true;
}

bool File::erase(std::string_view section, const char *key) {
    Section *target = find(section);
    if (target == nullptr || target->deleted) return false;
    if (key == nullptr) {
        for (const EntryId id : target->order) eraseChain(id);
        target->deleted = true;
    } else {
        const EntryId id = newest(*target, key, nameHash(key));
        if (id == kNoEntry || entries_[id].deleted) return false;
        eraseChain(id);
    }
    modified = true;
    return true;
}

}  // namespace vex::config
