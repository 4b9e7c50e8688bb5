/**
 * @file sqlite.h
 * @ingroup clients
 * Small databases in SQLite files: connections, prepared statements, result sets, and the table
 * "registry" of names and values.
 *
 * Nothing here throws or logs. Every outcome is left in the SQLiteException that a call is given,
 * which may be NULL where nobody asks. A connection, its statements and its result sets belong to
 * one thread at a time. Indexes of parameters start at 1, those of columns at 0.
 *
 * A statement that stands on a row keeps its database locked for reading, so that another
 * connection's commit waits: execute it again, or delete it.
 *
 * @standard SQLite 3: result codes, conversions and locks are its own, see sqlite.org.
 */
#ifndef VEX_SQLITE_H
#define VEX_SQLITE_H

#ifdef __cplusplus

#include <memory>
#include <string>

#include <vex/export.h>

struct sqlite3;
struct sqlite3_stmt;

class SQLiteConnection;
class SQLitePreparedStatement;

/** What a call came to: a result code of SQLite and its text. Despite its name it is never thrown.
 */
class VEX_API SQLiteException {
public:
    /**
     * Records a code. 0 leaves the message of an earlier call. A code that tells of a damaged file
     * (11, 267, 26) marks the connection as corrupted.
     *
     * @param connection  whose message is taken; NULL, or one without a handle, for SQLite's
     *                    general text.
     * @param code        a result code of SQLite.
     */
    void SetErrorCode(SQLiteConnection *connection, int code);
    /** The code recorded last; 0 at first. */
    int GetErrorCode() const { return code_; }
    /** True for 0, 100 (a row is ready) and 101 (done). */
    bool IsGood() const;
    /** The message; valid until the next call that is given this record. */
    const char *what() const { return message_.c_str(); }

private:
    int code_ = 0;
    std::string message_;
};

/** The rows of a query, which stands on the first one already. The statement must outlive it. */
class VEX_API SQLiteResultSet {
public:
    /**
     * Moves to the next row. Tell by IsGood() and IsLast() what came of it, not by the result: it
     * is true only at the end (code 101, the record untouched); a row gives false and code 100, as
     * a failure gives false and its code.
     */
    bool Next(SQLiteException *exception);
    /** True when there is no row to read (any more). */
    bool IsLast() const { return last_; }

    /** SQLite's conversion of a column to an integer of 32 bits; 0 for NULL and after the last row.
     */
    int GetInt(unsigned column);
    /** GetInt for 64 bits. */
    long long GetInt64(unsigned column);
    /** GetInt for a floating-point number. */
    double GetDouble(unsigned column);
    /** True when the column's integer is above 0. */
    bool GetBoolean(unsigned column);
    /** The column's text with all its bytes; empty for NULL, and without memory for it. */
    std::string GetString(unsigned column);

private:
    friend class SQLitePreparedStatement;
    SQLiteResultSet(SQLiteConnection *connection, sqlite3_stmt *statement, bool last)
        : connection_(connection), statement_(statement), last_(last) {}

    SQLiteConnection *connection_;
    sqlite3_stmt *statement_;
    bool last_;
};

/** One compiled SQL statement, the first of its text. The connection must outlive it. */
class VEX_API SQLitePreparedStatement {
public:
    /** Compiles; the result code is recorded, 0 for success. */
    SQLitePreparedStatement(SQLiteConnection *connection, const std::string &sql,
                            SQLiteException *exception);
    /** Releases the statement and the locks of its run. */
    ~SQLitePreparedStatement();
    SQLitePreparedStatement(const SQLitePreparedStatement &) = delete;
    SQLitePreparedStatement &operator=(const SQLitePreparedStatement &) = delete;

    /**
     * Binds a value to a parameter, where it stays until it is bound again. A statement that has
     * run is reset first.
     *
     * @return SQLite's result code, 0 for success, 25 for an index that the statement has not.
     */
    int SetInt(unsigned index, int value);
    /** SetInt for 64 bits. */
    int SetInt64(unsigned index, long long value);
    /** SetInt for a floating-point number. */
    int SetDouble(unsigned index, double value);
    /** Bound as the integer 1 or 0. */
    int SetBoolean(unsigned index, bool value);
    /** Bound without a copy: @p value must live, unchanged, until the statement has run. */
    int SetString(unsigned index, const std::string &value);

    /**
     * Runs the statement up to its first row or its end.
     *
     * @return true for a row (100) and for the end (101). After a failure the next call may only
     * tell that failure again, without running.
     */
    bool Execute(SQLiteException *exception);
    /** Runs the statement and gives its rows; see SQLiteResultSet::IsLast for none. */
    SQLiteResultSet ExecuteQuery(SQLiteException *exception);

private:
    friend class SQLiteConnection;
    /** Ends a run and its locks. Parameters keep pointing at borrowed strings until they are bound
     * anew. */
    void release();
    template <typename Bind>
    int bind(Bind bind);

    SQLiteConnection *connection_;
    sqlite3_stmt *statement_ = nullptr;
};

/** One database file, opened when asked to. */
class VEX_API SQLiteConnection {
public:
    /** Closed, without a name. */
    SQLiteConnection();
    /** Closes. */
    ~SQLiteConnection();
    SQLiteConnection(const SQLiteConnection &) = delete;
    SQLiteConnection &operator=(const SQLiteConnection &) = delete;

    /** Names the file that the next Open opens. */
    void SetDBFilename(const std::string &name) { filename_ = name; }
    /** The name given last. */
    const std::string &GetDBFilename() const { return filename_; }

    /**
     * Opens the file, which is created when it is absent, for waiting up to 10 seconds for locks of
     * others; what was open before is closed. Whether the file is a database shows at its first
     * use.
     */
    bool Open(SQLiteException *exception);
    /** Opens unless it is open. */
    bool CheckOpen(SQLiteException *exception);
    /** True between Open and Close. */
    bool IsOpen() const { return handle_ != nullptr; }
    /**
     * @return SQLite's result code; 5 when statements of this connection are alive, with whose end
     * the file is closed then.
     */
    int Close();
    /** SQLite's handle, which stays the connection's; NULL when closed. */
    sqlite3 *GetHandle() const { return handle_; }

    /** Whether a call met damage since the last Open. */
    bool IsCorrupted() const { return corrupted_; }
    /** Records damage, until the next Open. */
    void SetCorrupted() { corrupted_ = true; }

    /**
     * @return a new statement; NULL when the connection is closed or the text does not compile.
     * @owner the caller deletes it.
     */
    SQLitePreparedStatement *PrepareStatement(const std::string &sql);
    /** Compiles and runs the first statement of a text. */
    bool Execute(const std::string &sql, SQLiteException *exception);

    /**
     * false begins a transaction that locks the file for writing at once; true commits it, and
     * returns true whatever came of that: look at the record.
     */
    bool SetAutoCommit(bool on, SQLiteException *exception);
    /** Commits the transaction. @return false after a failure. */
    bool Commit(SQLiteException *exception);
    /** Undoes the transaction. @return false after a failure. */
    bool Rollback(SQLiteException *exception);

    /** Creates the table "registry" (name TEXT PRIMARY KEY, value TEXT) unless it is there. */
    bool CreateRegistryTable(SQLiteException *exception);
    /** The value of a name; empty when it is absent (code 101) and after a failure. */
    std::string GetRegistryItem(const std::string &name, SQLiteException *exception);
    /** Stores a value, in place of an older one. */
    bool SetRegistryItem(const std::string &name, const std::string &value,
                         SQLiteException *exception);

private:
    using Cached = std::unique_ptr<SQLitePreparedStatement>;
    SQLitePreparedStatement *prepareOnce(Cached *cached, const char *sql,
                                         SQLiteException *exception);
    bool executeCached(Cached *cached, const char *sql, SQLiteException *exception);

    bool corrupted_ = false;
    std::string filename_;
    sqlite3 *handle_ = nullptr;
    Cached begin_, commit_, rollback_;
    Cached select_, insert_;  // of the registry
};

#endif

#endif
