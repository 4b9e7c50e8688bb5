#include <sqlite3.h>

#include <new>
#include <utility>

#include <vex/sqlite.h>

namespace {

constexpr int kBusyTimeoutMs = 10000;
constexpr char kCreateRegistry[] =
    "CREATE TABLE IF NOT EXISTS registry (name TEXT PRIMARY KEY, value TEXT)";
constexpr char kSelect[] = "SELECT value FROM registry WHERE name=?";
constexpr char kInsert[] = "INSERT OR REPLACE INTO registry(name, value) VALUES(?,?)";

bool tellsOfDamage(int code) {
    return (code & ~0x100) == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

}  // namespace

void SQLiteException::SetErrorCode(SQLiteConnection *connection, int code) {
    code_ = code;
    if (code == SQLITE_OK) return;
    sqlite3 *const handle = connection != nullptr ? connection->GetHandle() : nullptr;
    try {
        message_ = handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
    } catch (const std::bad_alloc &) {
        message_.clear();
    }
    if (handle != nullptr && tellsOfDamage(code)) connection->SetCorrupted();
}

bool SQLiteException::IsGood() const {
    return code_ == SQLITE_OK || code_ == SQLITE_ROW || code_ == SQLITE_DONE;
}

SQLiteConnection::SQLiteConnection() = default;

SQLiteConnection::~SQLiteConnection() {
    (void)Close();  // nobody is left to be told
}

bool SQLiteConnection::Open(SQLiteException *exception) {
    (void)Close();  // of what was open before nothing is to be told
    corrupted_ = false;
    const int code = sqlite3_open(filename_.c_str(), &handle_);
    if (code == SQLITE_OK) {
        (void)sqlite3_busy_timeout(handle_, kBusyTimeoutMs);  // cannot fail on an open handle
    } else {
        (void)sqlite3_close(handle_);  // SQLite gives one even then
        handle_ = nullptr;
    }
    if (exception != nullptr) exception->SetErrorCode(this, code);
    return code == SQLITE_OK;
}

bool SQLiteConnection::CheckOpen(SQLiteException *exception) {
    return IsOpen() || Open(exception);
}

int SQLiteConnection::Close() {
    for (Cached *cached : {&begin_, &commit_, &rollback_, &select_, &insert_}) cached->reset();
    const int code = sqlite3_close(handle_);
    if (code == SQLITE_BUSY) (void)sqlite3_close_v2(handle_);  // with the last live statement
    handle_ = nullptr;
    return code;
}

SQLitePreparedStatement *SQLiteConnection::PrepareStatement(const std::string &sql) {
    if (handle_ == nullptr) return nullptr;
    SQLiteException exception;
    Cached statement(new (std::nothrow) SQLitePreparedStatement(this, sql, &exception));
    return exception.GetErrorCode() == SQLITE_OK ? statement.release() : nullptr;
}

bool SQLiteConnection::Execute(const std::string &sql, SQLiteException *exception) {
    SQLiteException unasked;
    if (exception == nullptr) exception = &unasked;
    SQLitePreparedStatement statement(this, sql, exception);
    return exception->GetErrorCode() == SQLITE_OK && statement.Execute(exception);
}

/// The statement, compiled at its first use; nullptr when that fails, and then it is tried anew the
/// next time. What the record held before the call does not matter.
SQLitePreparedStatement *SQLiteConnection::prepareOnce(Cached *cached, const char *sql,
                                                       SQLiteException *exception) {
    if (*cached != nullptr) return cached->get();
    SQLiteException prepared;
    cached->reset(new (std::nothrow) SQLitePreparedStatement(this, sql, &prepared));
    if (*cached == nullptr) prepared.SetErrorCode(nullptr, SQLITE_NOMEM);
    if (prepared.GetErrorCode() == SQLITE_OK) return cached->get();
    if (exception != nullptr) *exception = std::move(prepared);
    cached->reset();
    return nullptr;
}

bool SQLiteConnection::executeCached(Cached *cached, const char *sql, SQLiteException *exception) {
    SQLitePreparedStatement *const statement = prepareOnce(cached, sql, exception);
    return statement != nullptr && statement->Execute(exception);
}

bool SQLiteConnection::SetAutoCommit(bool on, SQLiteException *exception) {
    if (!on) return executeCached(&begin_, "BEGIN IMMEDIATE TRANSACTION", exception);
    (void)Commit(exception);  // its outcome is in the record
    return true;
}

bool SQLiteConnection::Commit(SQLiteException *exception) {
    return executeCached(&commit_, "COMMIT", exception);
}

bool SQLiteConnection::Rollback(SQLiteException *exception) {
    return executeCached(&rollback_, "ROLLBACK", exception);
}

bool SQLiteConnection::CreateRegistryTable(SQLiteException *exception) {
    return Execute(kCreateRegistry, exception);
}

std::string SQLiteConnection::GetRegistryItem(const std::string &name, SQLiteException *exception) {
    SQLiteException unasked;
    if (exception == nullptr) exception = &unasked;
    SQLitePreparedStatement *const statement = prepareOnce(&select_, kSelect, exception);
    if (statement == nullptr) return {};
    std::string value;
    // without its value the parameter would be NULL, and the query find nothing
    if (const int code = statement->SetString(1, name); code != SQLITE_OK) {
        exception->SetErrorCode(this, code);
        return value;
    }
    SQLiteResultSet result = statement->ExecuteQuery(exception);
    if (exception->IsGood() && !result.IsLast()) {
        value = result.GetString(0);
        if (static_cast<int>(value.size()) != sqlite3_column_bytes(statement->statement_, 0))
            exception->SetErrorCode(nullptr, SQLITE_NOMEM);
    }
    statement->release();
    return value;
}

bool SQLiteConnection::SetRegistryItem(const std::string &name, const std::string &value,
                                       SQLiteException *exception) {
    SQLitePreparedStatement *const statement = prepareOnce(&insert_, kInsert, exception);
    if (statement == nullptr) return false;
    int code = statement->SetString(1, name);
    if (code == SQLITE_OK) code = statement->SetString(2, value);
    if (code != SQLITE_OK) {  // it would store NULL
        if (exception != nullptr) exception->SetErrorCode(this, code);
        return false;
    }
    const bool stored = statement->Execute(exception);
    statement->release();
    return stored;
}
