/**
 * @file json.h
 * @ingroup clients
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

/** A JSON object; it owns its members. */
class VEX_API JsonObject {
public:
    /** An object without members. Throws std::bad_alloc. */
    JsonObject();
    /** Frees the members. */
    ~JsonObject();
    /** A deep copy. Throws std::bad_alloc. */
    JsonObject(const JsonObject &other);
    /** A deep copy; this object is unchanged when there is no memory. Throws std::bad_alloc. */
    JsonObject &operator=(const JsonObject &other);
    /** Takes the members over; @p other has none afterwards. */
    JsonObject(JsonObject &&other) noexcept;
    /** Exchanges the members. */
    JsonObject &operator=(JsonObject &&other) noexcept;

    /**
     * Reads a text whose top must be an object.
     *
     * @param text  UTF-8; need not be terminated, and may hold escaped zeros.
     * @param out   untouched after a failure.
     * @return 0; -1 with EINVAL for what is no JSON object, the message telling line and column.
     */
    static int parse(const std::string &text, JsonObject &out);
    /** parse of a file's content; -1 with the file's errno when it cannot be read. */
    static int load(const char *path, JsonObject &out);

    /**
     * Puts the object into a file, durably: under a temporary name, synced, renamed over the path,
     * directory synced. The file's mode stays; a new file gets 0644 less the umask.
     *
     * @return 0; -1 with errno, and the file as it was unless only the last sync failed.
     */
    int save(const char *path) const;
    /** The object as text, members in the order of their making. @param indent blanks a level, 0
     * for one line. Throws std::bad_alloc, as copies do; nothing else here throws. */
    std::string dump(int indent = 0) const;

    /** True when there is a member of that key or path, be it null. */
    bool has(const char *key) const;

    /**
     * Reads a text member.
     *
     * @param key  a key or a path; NULL counts as absent.
     * @param out  untouched unless the result is 1, so that it may hold the default.
     * @return 1 found; 0 absent; -1 with EINVAL, logged, for a member of another type.
     */
    int getString(const char *key, std::string &out) const;
    /** getString for an integer. */
    int getInt(const char *key, int64_t &out) const;
    /** getString for a truth value. */
    int getBool(const char *key, bool &out) const;
    /** getString for a number; an integer is one too. */
    int getDouble(const char *key, double &out) const;
    /** getString for an object, of which @p out gets a deep copy. */
    int getObject(const char *key, JsonObject &out) const;
    /** getString for an array of texts alone. */
    int getStringArray(const char *key, std::vector<std::string> &out) const;

    /**
     * Stores a text as a member of this object, in place of an older one. A key is taken as it
     * stands, paths are not followed.
     *
     * @return 0; -1 with EILSEQ for a key or text that is no UTF-8, EINVAL for a NULL key, ENOMEM.
     */
    int setString(const char *key, const std::string &value);
    /** setString for an integer. */
    int setInt(const char *key, int64_t value);
    /** setString for a truth value. */
    int setBool(const char *key, bool value);
    /** setString for a number; EINVAL for one that is not finite. */
    int setDouble(const char *key, double value);
    /** setString for an object, which is copied. */
    int setObject(const char *key, const JsonObject &value);
    /** setString for an array of texts. */
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
