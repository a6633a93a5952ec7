#include "database.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr int kPatience = 5000;  // milliseconds for what another program locks
constexpr std::uint64_t kLargestInteger = std::numeric_limits<std::int64_t>::max();

// A path as what SQLite takes for one, whatever is in it.
std::string Uri(const std::string &path) {
  std::string uri = "file:";
  for (const char c : std::filesystem::absolute(path).string()) {
    if (c == '%' || c == '?' || c == '#') {
      uri += fmt::format("%{:02x}", static_cast<unsigned>(c));
    } else {
      uri += c;
    }
  }
  return uri;
}

}  // namespace

void Database::Close::operator()(sqlite3 *handle) const { sqlite3_close_v2(handle); }
void Statement::Finalize::operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }

Database::Database(std::string path, const std::string &uri, int flags) : path_(std::move(path)) {
  sqlite3 *opened = nullptr;
  const int code = sqlite3_open_v2(uri.c_str(), &opened, flags | SQLITE_OPEN_URI, nullptr);
  handle_.reset(opened);
  Check(code);
  sqlite3_busy_timeout(opened, kPatience);
}

Database Database::OpenToRead(const std::string &path) {
  const std::string uri = Uri(path);
  Database database(path, uri, SQLITE_OPEN_READONLY);
  // A file that nobody has open needs a new one beside it, for which the directory may not be ours. Then nobody
  // writes to it either.
  constexpr const char *kFirstLook = "SELECT count(*) FROM sqlite_schema";
  const int code = sqlite3_exec(database.handle(), kFirstLook, nullptr, nullptr, nullptr);
  if ((code == SQLITE_CANTOPEN || code == SQLITE_READONLY) && !std::filesystem::exists(path + "-wal")) {
    database = Database(path, uri + "?immutable=1", SQLITE_OPEN_READONLY);
  }
  return database;
}

Database Database::OpenToWrite(const std::string &path) {
  return {path, Uri(path), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE};
}

bool Database::is_open_to_write() const { return sqlite3_db_readonly(handle_.get(), "main") == 0; }

void Database::Run(const char *statements) {
  Check(sqlite3_exec(handle_.get(), statements, nullptr, nullptr, nullptr));
}

void Database::UseLog() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatience);
  for (;;) {
    const int code = sqlite3_exec(handle_.get(), "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
    if (code != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline) return Check(code);
    sqlite3_sleep(20);
  }
}

void Database::RollBack() noexcept { sqlite3_exec(handle_.get(), "ROLLBACK", nullptr, nullptr, nullptr); }

std::int64_t Database::Integer(const char *query) {
  Statement statement(*this, query);
  return statement.Step() ? static_cast<std::int64_t>(statement.Number(0).bits()) : 0;
}

void Database::Check(int code) const {
  if (code != SQLITE_OK) Fail(code);
}

void Database::Fail(int code) const {
  const int error = sqlite3_system_errno(handle_.get());
  switch (code & 0xff) {
    case SQLITE_NOMEM:
      throw std::bad_alloc();
    case SQLITE_NOTADB:
      throw Error(path_ + ": is not a database");
    case SQLITE_CORRUPT:
      throw Error(path_ + ": is a damaged database");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw Error(path_ + ": is locked by another program");
    case SQLITE_FULL:
      throw Error(fmt::format("{}: cannot write: {}", path_, ErrnoText(ENOSPC)));
    case SQLITE_READONLY:
      throw Error(path_ + ": cannot write: it is read-only");
    case SQLITE_CANTOPEN:
      throw Error(fmt::format("{}: cannot open: {}", path_, error ? ErrnoText(error) : "it is no file"));
    case SQLITE_IOERR:
      throw Error(fmt::format("{}: cannot read or write: {}", path_, ErrnoText(error ? error : EIO)));
    default:
      throw Error(fmt::format("{}: {}", path_, sqlite3_errmsg(handle_.get())));
  }
}

Statement::Statement(const Database &database, const char *text) : database_(&database) {
  sqlite3_stmt *statement = nullptr;
  const int code = sqlite3_prepare_v2(database.handle(), text, -1, &statement, nullptr);
  statement_.reset(statement);
  if (code != SQLITE_OK) database.Fail(code);
}

void Statement::Bind(int parameter, std::string_view text) {
  const auto size = static_cast<int>(text.size());
  const int code = sqlite3_bind_text(statement_.get(), parameter + 1, text.data(), size, SQLITE_STATIC);
  if (code != SQLITE_OK) database_->Fail(code);
}

// Integers have 64 bits with a sign. Larger ones are text with leading zeros, which sorts behind them and by value.
void Statement::Bind(int parameter, zor::process::Number number) {
  if (!number.is_negative() && number.bits() > kLargestInteger) {
    const std::string digits = fmt::format("{:020}", number.bits());
    sqlite3_bind_text(statement_.get(), parameter + 1, digits.data(), static_cast<int>(digits.size()),
                      SQLITE_TRANSIENT);
  } else {
    sqlite3_bind_int64(statement_.get(), parameter + 1, static_cast<std::int64_t>(number.bits()));
  }
}

void Statement::BindNull(int parameter) { sqlite3_bind_null(statement_.get(), parameter + 1); }

bool Statement::Step() {
  const int code = sqlite3_step(statement_.get());
  if (code != SQLITE_ROW && code != SQLITE_DONE) database_->Fail(code);
  return code == SQLITE_ROW;
}

void Statement::Finish() {
  while (Step()) {
  }
  sqlite3_reset(statement_.get());
}

bool Statement::IsNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }

std::string_view Statement::Text(int column) const {
  const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement_.get(), column));
  return {text == nullptr ? "" : text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

zor::process::Number Statement::Number(int column) const {
  if (sqlite3_column_type(statement_.get(), column) == SQLITE_TEXT) {
    return ParseNumber<std::uint64_t>(Text(column)).value_or(0);
  }
  return sqlite3_column_int64(statement_.get(), column);
}

}  // namespace zorstat
