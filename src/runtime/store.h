// The one connection of this process to state.db, in which configuration values and tags are kept.
//
// Opened on first use (which creates the folder and the tables) and shared by all threads, one session at a
// time. It does not survive a fork: it is closed before, and both sides open it again. Every
// failure throws exc::error_t with the file's path and what to do about it; nothing is ever deleted.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace mirn3::store {

// A prepared statement. Parameters count from 1, columns from 0. Texts that are bound must stay alive
// until the next step().
class Statement {
 public:
  Statement(sqlite3* database, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int parameter, std::string_view text);
  Statement& bind(int parameter, int64_t number);
  Statement& bind(int parameter, double number);

  // True: there is a row. False: done, and ready to be bound and run again.
  bool step();

  // Runs a statement that has no rows; returns how many rows it changed.
  int run();

  bool is_null(int column) const;
  int64_t integer(int column) const;
  double real(int column) const;
  std::string_view text(int column) const;  // valid until the next step()

 private:
  void check(int code) const;

  sqlite3* database_;
  sqlite3_stmt* statement_ = nullptr;
};

// Exclusive use of the connection.
class Session {
 public:
  // What to do when there is no state.db yet.
  enum class Absent { create, leave };

  explicit Session(Absent absent);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // False only for Absent::leave, when there is nothing to read.
  bool is_open() const noexcept { return database_ != nullptr; }

  sqlite3* database() const noexcept { return database_; }
  void execute(const char* sql);

 private:
  std::unique_lock<std::mutex> lock_;
  sqlite3* database_ = nullptr;
};

// Changes whenever any process commits to the store: sizes and times of its files.
struct Stamp {
  int64_t sizes[2] = {-1, -1};  // state.db and its write-ahead log; -1 for a file that is not there
  int64_t modified_ns[2] = {0, 0};
  bool operator==(const Stamp&) const = default;
};
Stamp stamp();

// A write transaction, rolled back unless committed.
class Transaction {
 public:
  explicit Transaction(Session& session);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  Session& session_;
  bool open_ = true;
};

}  // namespace mirn3::store
