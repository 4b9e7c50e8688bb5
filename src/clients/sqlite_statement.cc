#include <sqlite3.h>

#include <climits>
#include <new>

#include <vex/sqlite.h>

namespace {

int place(unsigned index) {
    return index <= INT_MAX ? static_cast<int>(index)
                            : -1;  // SQLite gives NULL for what is not there
}

}  // namespace

SQLitePreparedStatement::SQLitePreparedStatement(SQLiteConnection *connection,
                                                 const std::string &sql, SQLiteException *exception)
    : connection_(connection) {
    sqlite3 *const handle = connection != nullptr ? connection->GetHandle() : nullptr;
    int code = SQLITE_MISUSE;
    if (sql.size() >= INT_MAX)
        code = SQLITE_TOOBIG;
    else if (handle != nullptr)
        code = sqlite3_prepare_v2(handle, sql.c_str(), static_cast<int>(sql.size()) + 1,
                                  &statement_, nullptr);
    if (exception != nullptr) exception->SetErrorCode(connection, code);
}

SQLitePreparedStatement::~SQLitePreparedStatement() {
    (void)sqlite3_finalize(statement_);  // tells the last run's failure once more
}

/// A statement that has run takes values only after a reset, and would run with the old ones.
template <typename Bind>
int SQLitePreparedStatement::bind(Bind bind) {
    const int code = bind();
    if (code != SQLITE_MISUSE || statement_ == nullptr) return code;
    (void)sqlite3_reset(statement_);  // tells the last run's failure once more
    return bind();
}

int SQLitePreparedStatement::SetInt(unsigned index, int value) {
    return bind([&] { return sqlite3_bind_int(statement_, place(index), value); });
}

int SQLitePreparedStatement::SetInt64(unsigned index, long long value) {
    return bind([&] { return sqlite3_bind_int64(statement_, place(index), value); });
}

int SQLitePreparedStatement::SetDouble(unsigned index, double value) {
    return bind([&] { return sqlite3_bind_double(statement_, place(index), value); });
}

int SQLitePreparedStatement::SetBoolean(unsigned index, bool value) {
    return SetInt(index, value ? 1 : 0);
}

int SQLitePreparedStatement::SetString(unsigned index, const std::string &value) {
    return bind([&] {
        return sqlite3_bind_text64(statement_, place(index), value.data(), value.size(),
                                   SQLITE_STATIC, SQLITE_UTF8);
    });
}

bool SQLitePreparedStatement::Execute(SQLiteException *exception) {
    SQLiteException unasked;
    if (exception == nullptr) exception = &unasked;
    int code = sqlite3_reset(statement_);
    const bool ready = code == SQLITE_OK;
    if (ready) code = sqlite3_step(statement_);
    exception->SetErrorCode(connection_, code);
    return ready && exception->IsGood();
}

SQLiteResultSet SQLitePreparedStatement::ExecuteQuery(SQLiteException *exception) {
    SQLiteException unasked;
    if (exception == nullptr) exception = &unasked;
    (void)Execute(exception);  // what came of it is in the record
    return {connection_, statement_, exception->GetErrorCode() == SQLITE_DONE};
}

void SQLitePreparedStatement::release() {
    (void)sqlite3_reset(statement_);  // tells the last run's failure once more
}

bool SQLiteResultSet::Next(SQLiteException *exception) {
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_DONE) last_ = true;
    if (code == SQLITE_DONE || code == SQLITE_OK) return true;
    if (exception != nullptr) exception->SetErrorCode(connection_, code);
    return false;
}

int SQLiteResultSet::GetInt(unsigned column) {
    return sqlite3_column_int(statement_, place(column));
}

long long SQLiteResultSet::GetInt64(unsigned column) {
    return sqlite3_column_int64(statement_, place(column));
}

double SQLiteResultSet::GetDouble(unsigned column) {
    return sqlite3_column_double(statement_, place(column));
}

bool SQLiteResultSet::GetBoolean(unsigned column) {
    return GetInt(column) > 0;
}

std::string SQLiteResultSet::GetString(unsigned column) {
    const auto *const text =
        reinterpret_cast<const char *>(sqlite3_column_text(statement_, place(column)));
    if (text == nullptr) return {};
    try {
        return {text, static_cast<size_t>(sqlite3_column_bytes(statement_, place(column)))};
    } catch (const std::bad_alloc &) {
        return {};
    }
}
