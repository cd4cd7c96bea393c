// SPDX-License-Identifier: MIT
// statement: SQL statements with their arguments in one go, and rows read without what SQLiteCpp adds to each column:
// there may be millions. The functions throw SQLite::Exception.
#pragma once

#include "util/guard.h"

#include <SQLiteCpp/Exception.h>
#include <SQLiteCpp/Statement.h>
#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// --- changes ---

inline void Bind(SQLite::Statement &statement, int column, std::int64_t value) { statement.bind(column, value); }
inline void Bind(SQLite::Statement &statement, int column, std::uint32_t value) { statement.bind(column, value); }
inline void Bind(SQLite::Statement &statement, int column, const std::string &text) {
    statement.bindNoCopy(column, text);
}
inline void Bind(SQLite::Statement &statement, int column, const std::optional<std::string> &text) {
    if (text) {
        statement.bindNoCopy(column, *text);
    } else {
        statement.bind(column);
    }
}
struct Blob {
    std::string_view bytes;
};
inline void Bind(SQLite::Statement &statement, int column, Blob blob) {
    statement.bindNoCopy(column, blob.bytes.data(), static_cast<int>(blob.bytes.size()));
}

// Executes a statement without result rows; the arguments are borrowed for the call.
template <typename... Arguments>
void Run(SQLite::Statement &statement, const Arguments &...arguments) {
    (void)statement.tryReset();
    int column = 0;
    (Bind(statement, ++column, arguments), ...);
    (void)statement.exec();
}

// A time has 64 bits and SQLite's integers are signed; the times of the next 27,000 years fit.
inline std::int64_t Stored(std::uint64_t time) { return static_cast<std::int64_t>(time); }

// --- rows ---

inline void FinishRows(sqlite3_stmt *rows) { (void)sqlite3_finalize(rows); }
using Rows = std::unique_ptr<sqlite3_stmt, Calls<&FinishRows>>;

inline Rows Select(sqlite3 *database, const char *query) {
    sqlite3_stmt *rows = nullptr;
    if (sqlite3_prepare_v2(database, query, -1, &rows, nullptr) != SQLITE_OK) throw SQLite::Exception(database);
    return Rows(rows);
}

// Moves to the next row. False when there is none.
inline bool Next(const Rows &rows) {
    const int rc = sqlite3_step(rows.get());
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) throw SQLite::Exception(sqlite3_db_handle(rows.get()), rc);
    return rc == SQLITE_ROW;
}

inline std::int64_t Number(const Rows &rows, int column) { return sqlite3_column_int64(rows.get(), column); }
inline std::uint32_t Word(const Rows &rows, int column) { return static_cast<std::uint32_t>(Number(rows, column)); }
inline bool IsNull(const Rows &rows, int column) { return sqlite3_column_type(rows.get(), column) == SQLITE_NULL; }
inline std::string_view BytesAt(const Rows &rows, int column) { // valid until the next row
    const auto *bytes = static_cast<const char *>(sqlite3_column_blob(rows.get(), column));
    const auto count = static_cast<std::size_t>(sqlite3_column_bytes(rows.get(), column));
    return bytes != nullptr ? std::string_view(bytes, count) : std::string_view();
}
inline std::string Bytes(const Rows &rows, int column) { return std::string(BytesAt(rows, column)); }
