/**
 * @file json.h
 * JSON objects: typed members, paths to inner ones, texts and files. jansson does the work.
 *
 * Members are named by their key, or, with a name that begins with '/', by a path of keys and array
 * indexes ("/servers/0/port"; "~1" stands for '/' and "~0" for '~' inside a key). Of a key that a
 * text holds twice the last one counts. Failures set errno and are logged; a member that is absent
 * is no failure.
 *
 * @threads an object belongs to one thread at a time.
 * @standard RFC 8259; RFC 6901 for paths.
 */
#ifndef VEX_JSON_H
#define VEX_JSON_H

#ifdef __cplusplus

#include <cstdint>
#include <string>
#include <vector>

#include <vex/export.h>

struct json_t;

class VEX_API JsonObject {
public:
    /** An object without members. Throws std::bad_alloc. */
    JsonObject();
    ~JsonObject();
    /** Copies are deep. */
    JsonObject(const JsonObject &other);
    JsonObject &operator=(const JsonObject &other);
    JsonObject(JsonObject &&other) noexcept;
    JsonObject &operator=(JsonObject &&other) noexcept;

    /**
     * Reads a text, or a file, whose top must be an object.
     *
     * @param out  untouched after a failure.
     * @return 0; -1 with EINVAL for what is no JSON object, the message telling line and column, or
     * the file's errno.
     */
    static int parse(const std::string &text, JsonObject &out);
    static int load(const char *path, JsonObject &out);

    /**
     * Puts the object into a file, durably: under a temporary name, synced, renamed over the path,
     * directory synced. The file's mode stays; a new file gets 0644 less the umask.
     *
     * @return 0; -1 with errno, and the file as it was.
     */
    int save(const char *path) const;
    /** The object as text, members in the order of their making. @param indent blanks a level, 0
     * for one line. Throws std::bad_alloc, as copies do; nothing else here throws. */
    std::string dump(int indent = 0) const;

    bool has(const char *key) const;

    /**
     * Read a member.
     *
     * @param out  untouched unless the result is 1, so that it may hold the default.
     * @return 1 found; 0 absent; -1 with EINVAL, logged, for a member of another type. An integer
     * reads as a double too.
     */
    int getString(const char *key, std::string &out) const;
    int getInt(const char *key, int64_t &out) const;
    int getBool(const char *key, bool &out) const;
    int getDouble(const char *key, double &out) const;
    /** A deep copy of the member. */
    int getObject(const char *key, JsonObject &out) const;
    int getStringArray(const char *key, std::vector<std::string> &out) const;

    /**
     * Set a member of this object, in place of an older one. A key is taken as it stands, paths are
     * not followed.
     *
     * @return 0; -1 with EILSEQ for a key or text that is no UTF-8, EINVAL for a number that is not
     * finite, ENOMEM.
     */
    int setString(const char *key, const std::string &value);
    int setInt(const char *key, int64_t value);
    int setBool(const char *key, bool value);
    int setDouble(const char *key, double value);
    int setObject(const char *key, const JsonObject &value);
    int setStringArray(const char *key, const std::vector<std::string> &values);

    /** Removes a member of this object. @return 1 when it was there, else 0. */
    int remove(const char *key);

    /** jansson's object, which stays this one's. */
    json_t *handle() const { return object_; }

private:
    json_t *object_;
};

#endif

#endif
