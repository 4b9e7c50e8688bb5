#include <errno.h>
#include <jansson.h>

#include <cmath>
#include <memory>
#include <new>
#include <utility>

#include <vex/file.h>
#include <vex/json.h>

#include "base/unique_ptr.h"
#include "io/replacement_file.h"
#include "log/report.h"

namespace {

json_t *orThrow(json_t *value) {
    if (value == nullptr) throw std::bad_alloc();
    return value;
}

/// Takes over what a parse gave; -1 after reporting its place. @p file is "file: ", or empty.
int adopt(const char *who, const std::string &file, json_t *value, const json_error_t &error,
          json_t **object) {
    if (value != nullptr && json_is_object(value)) {
        json_decref(*object);
        *object = value;
        return 0;
    }
    json_decref(value);
    if (value != nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "%sthe text is no JSON object", file.c_str());
    return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "%son line %d, column %d: %s", file.c_str(),
                       error.line, error.column, error.text);
}

/// One step of a path: the key, or index, up to the next '/', with its escapes undone.
std::string nextStep(const char **path) {
    std::string step;
    const char *at = *path + 1;
    for (; *at != '\0' && *at != '/'; ++at) {
        const bool escape = *at == '~' && (at[1] == '0' || at[1] == '1');
        step += escape ? (*++at == '0' ? '~' : '/') : *at;
    }
    *path = at;
    return step;
}

const json_t *element(const json_t *array, const std::string &index) {
    if (index.empty() || index.size() > 9 ||
        index.find_first_not_of("0123456789") != std::string::npos)
        return nullptr;
    return json_array_get(array, std::stoul(index));
}

const json_t *find(const json_t *object, const char *name) {
    if (name == nullptr) return nullptr;
    if (*name != '/') return json_object_get(object, name);
    const json_t *value = object;
    while (value != nullptr && *name == '/') {
        const std::string step = nextStep(&name);
        value = json_is_array(value) ? element(value, step) : json_object_get(value, step.c_str());
    }
    return value;
}

/// The three answers of every getter; @p take stores a value of the right type, or refuses it.
template <typename Take>
int get(const char *who, const json_t *object, const char *name, const char *type, Take take) {
    return vex::guard(who, -1, [&] {
        const json_t *const value = find(object, name);
        if (value == nullptr) return 0;
        if (take(value)) return 1;
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "%s is no %s", name, type);
    });
}

/// Stores what @p make makes; jansson refuses what is no UTF-8, and tells that from want of memory
/// by errno alone.
template <typename Make>
int set(const char *who, json_t *object, const char *key, Make make) {
    if (key == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    errno = 0;
    if (json_object_set_new(object, key, make()) == 0) return 0;
    if (errno == ENOMEM) return VEX_FAIL_AS(who, ENOMEM, ENOMEM, -1, "cannot store %s: %m", key);
    return VEX_FAIL_AS(who, EILSEQ, EILSEQ, -1, "cannot store %s: is it UTF-8?", key);
}

json_t *textOf(const std::string &text) {
    return json_stringn(text.data(), text.size());
}

}  // namespace

JsonObject::JsonObject() : object_(orThrow(json_object())) {}

JsonObject::~JsonObject() {
    json_decref(object_);
}

JsonObject::JsonObject(const JsonObject &other) : object_(orThrow(json_deep_copy(other.object_))) {}

JsonObject &JsonObject::operator=(const JsonObject &other) {
    JsonObject copy(other);
    std::swap(object_, copy.object_);
    return *this;
}

JsonObject::JsonObject(JsonObject &&other) noexcept : object_(json_object()) {
    std::swap(object_, other.object_);
}

JsonObject &JsonObject::operator=(JsonObject &&other) noexcept {
    std::swap(object_, other.object_);
    return *this;
}

int JsonObject::parse(const std::string &text, JsonObject &out) {
    json_error_t error;
    json_t *const value = json_loadb(text.data(), text.size(), JSON_ALLOW_NUL, &error);
    return adopt("JsonObject::parse", "", value, error, &out.object_);
}

int JsonObject::load(const char *path, JsonObject &out) {
    size_t size = 0;
    const vex::UniqueMalloc<void> text(FileToBuffer(path, &size));
    if (text == nullptr) return -1;
    return vex::guard("JsonObject::load", -1, [&] {
        const std::string file = std::string(path) + ": ";
        json_error_t error;
        json_t *const value =
            json_loadb(static_cast<const char *>(text.get()), size, JSON_ALLOW_NUL, &error);
        return adopt("JsonObject::load", file, value, error, &out.object_);
    });
}

int JsonObject::save(const char *path) const {
    constexpr char kWho[] = "JsonObject::save";
    if (path == nullptr) return VEX_FAIL_AS(kWho, EINVAL, EINVAL, -1, "invalid NULL parameter");
    return vex::guard(kWho, -1, [&] {
        if (vex::io::replaceFile(path, dump(4) + "\n", 0644)) return 0;
        return VEX_FAIL_AS(kWho, errno, errno, -1, "could not write %s: %m", path);
    });
}

std::string JsonObject::dump(int indent) const {
    const auto blanks = static_cast<size_t>(indent > 0 && indent < 32 ? indent : 0);
    const vex::UniqueMalloc<char> text(json_dumps(object_, JSON_INDENT(blanks)));
    if (text == nullptr) throw std::bad_alloc();
    return text.get();
}

bool JsonObject::has(const char *key) const {
    return vex::guard("JsonObject::has", false, [&] { return find(object_, key) != nullptr; });
}

int JsonObject::getString(const char *key, std::string &out) const {
    return get("JsonObject::getString", object_, key, "string", [&](const json_t *value) {
        if (!json_is_string(value)) return false;
        out.assign(json_string_value(value), json_string_length(value));
        return true;
    });
}

int JsonObject::getInt(const char *key, int64_t &out) const {
    return get("JsonObject::getInt", object_, key, "integer", [&](const json_t *value) {
        if (json_is_integer(value)) out = json_integer_value(value);
        return json_is_integer(value);
    });
}

int JsonObject::getBool(const char *key, bool &out) const {
    return get("JsonObject::getBool", object_, key, "bool", [&](const json_t *value) {
        if (json_is_boolean(value)) out = json_is_true(value);
        return json_is_boolean(value);
    });
}

int JsonObject::getDouble(const char *key, double &out) const {
    return get("JsonObject::getDouble", object_, key, "number", [&](const json_t *value) {
        if (json_is_number(value)) out = json_number_value(value);
        return json_is_number(value);
    });
}

int JsonObject::getObject(const char *key, JsonObject &out) const {
    return get("JsonObject::getObject", object_, key, "object", [&](const json_t *value) {
        if (!json_is_object(value)) return false;
        json_t *const copy = orThrow(json_deep_copy(value));
        json_decref(out.object_);
        out.object_ = copy;
        return true;
    });
}

int JsonObject::getStringArray(const char *key, std::vector<std::string> &out) const {
    return get("JsonObject::getStringArray", object_, key, "array of strings",
               [&](const json_t *value) {
                   if (!json_is_array(value)) return false;
                   std::vector<std::string> texts;
                   for (size_t i = 0; i < json_array_size(value); ++i) {
                       const json_t *const text = json_array_get(value, i);
                       if (!json_is_string(text)) return false;
                       texts.emplace_back(json_string_value(text), json_string_length(text));
                   }
                   out.swap(texts);
                   return true;
               });
}

int JsonObject::setString(const char *key, const std::string &value) {
    return set("JsonObject::setString", object_, key, [&] { return textOf(value); });
}

int JsonObject::setInt(const char *key, int64_t value) {
    return set("JsonObject::setInt", object_, key, [&] { return json_integer(value); });
}

int JsonObject::setBool(const char *key, bool value) {
    return set("JsonObject::setBool", object_, key, [&] { return json_boolean(value); });
}

int JsonObject::setDouble(const char *key, double value) {
    if (!std::isfinite(value))
        return VEX_FAIL_AS("JsonObject::setDouble", EINVAL, EINVAL, -1, "%f is no JSON number",
                           value);
    return set("JsonObject::setDouble", object_, key, [&] { return json_real(value); });
}

int JsonObject::setObject(const char *key, const JsonObject &value) {
    return set("JsonObject::setObject", object_, key,
               [&] { return json_deep_copy(value.object_); });
}

int JsonObject::setStringArray(const char *key, const std::vector<std::string> &values) {
    return set("JsonObject::setStringArray", object_, key, [&] {
        json_t *array = json_array();
        for (const std::string &value : values) {
            if (array == nullptr || json_array_append_new(array, textOf(value)) == 0) continue;
            json_decref(array);
            array = nullptr;
        }
        return array;
    });
}

int JsonObject::remove(const char *key) {
    return key != nullptr && json_object_del(object_, key) == 0 ? 1 : 0;
}
