// SQLite, checked: whatever fails is thrown with the file's name and the reason.
#ifndef ZORSTAT_DATABASE_H_
#define ZORSTAT_DATABASE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zor/process/readings.hpp"

struct sqlite3;
struct sqlite3_stmt;

namespace zorstat {

// All throw Error.
class Database {
 public:
  // For reading alone, if the file is there; else it is made, and what is written lives on when the program is
  // killed at any moment.
  static Database OpenToRead(const std::string &path);
  static Database OpenToWrite(const std::string &path);

  void Run(const char *statements);
  // From now on changes go to a log ahead of the file: readers and the writer do not wait for each other.
  void UseLog();
  void RollBack() noexcept;
  std::int64_t Integer(const char *query);  // the first column of its first row
  bool is_open_to_write() const;

  const std::string &name() const { return path_; }
  sqlite3 *handle() const { return handle_.get(); }
  [[noreturn]] void Fail(int code) const;

 private:
  Database(std::string path, const std::string &uri, int flags);
  void Check(int code) const;

  struct Close {
    void operator()(sqlite3 *handle) const;
  };
  std::string path_;
  std::unique_ptr<sqlite3, Close> handle_;
};

// A prepared statement. The database stays where it is as long as there is one.
class Statement {
 public:
  Statement(const Database &database, const char *text);

  // Parameters from 0 on. Text must live until the statement is reset.
  void Bind(int parameter, std::string_view text);
  void Bind(int parameter, zor::process::Number number);
  void BindNull(int parameter);

  // Goes on to the next row, if there is one.
  bool Step();
  // Runs it to its end, for the next parameters.
  void Finish();

  // Columns from 0 on; views are valid up to the next step.
  bool IsNull(int column) const;
  std::string_view Text(int column) const;
  zor::process::Number Number(int column) const;  // 0 where it is none

 private:
  struct Finalize {
    void operator()(sqlite3_stmt *statement) const;
  };
  const Database *database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace zorstat

#endif  // ZORSTAT_DATABASE_H_
