// The connection to state.db.
#include "runtime/store.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "runtime/exc.h"
#include "runtime/lifetime.h"
#include "runtime/sys.h"

namespace mirn3::store {

namespace {

constexpr int longest_wait_ms = 10000;  // for another process that writes
constexpr int layout_version = 1;

// tag_next holds the next number of each key that no process has claimed.
constexpr const char* layout = R"(
  CREATE TABLE config (grp TEXT NOT NULL, key TEXT NOT NULL, type INTEGER NOT NULL, value,
                       PRIMARY KEY (grp, key)) WITHOUT ROWID;
  CREATE TABLE tag (key TEXT NOT NULL, number INTEGER NOT NULL, text TEXT NOT NULL,
                    PRIMARY KEY (key, number));
  CREATE TABLE tag_next (key TEXT PRIMARY KEY, next INTEGER NOT NULL) WITHOUT ROWID;
  PRAGMA user_version = 1;
)";

struct State {
  std::mutex mutex;
  sqlite3* database = nullptr;
  std::string path;
  pid_t owner = 0;
  bool damaged = false;  // closed at the end of the session, so that a repaired file is opened again
};

// Never destroyed: threads may outlive main().
State& state() {
  static State& kept = *new State;
  return kept;
}

[[noreturn]] void fail(sqlite3* database, int code) {
  State& s = state();
  const std::string reason = database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(code);
  const char* advice = nullptr;
  switch (code & 0xff) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      s.damaged = true;
      advice = "the file is damaged: move it and its -wal and -shm files away to start with an empty one";
      break;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      advice = "another program holds it: end that program or try again";
      break;
    case SQLITE_FULL:
    case SQLITE_NOMEM:
      advice = "free some space and try again";
      break;
    default:
      advice = "check that its folder exists and may be written, or set KVALO_HOME to one that may";
  }
  throw exc::error_t(fmt::format("Cannot use the store {:s} ({:s}): {:s}", s.path, reason, advice), code);
}

void check(sqlite3* database, int code) {
  if (code != SQLITE_OK) fail(database, code);
}

void execute_on(sqlite3* database, const char* sql) {
  check(database, sqlite3_exec(database, sql, nullptr, nullptr, nullptr));
}

int version_of(sqlite3* database) {
  Statement query(database, "PRAGMA user_version");
  return query.step() ? static_cast<int>(query.integer(0)) : 0;
}

// Switching to the journal may fail at once, without waiting, while another process opens the file.
void turn_journal_on(sqlite3* database) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(longest_wait_ms);
  for (;;) {
    const int code = sqlite3_exec(database, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
    if (code == SQLITE_OK) return;
    if ((code & 0xff) != SQLITE_BUSY || std::chrono::steady_clock::now() > until) fail(database, code);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void make_layout(sqlite3* database) {
  execute_on(database, "BEGIN IMMEDIATE");
  try {
    if (version_of(database) == 0) execute_on(database, layout);  // unless another process just did
    execute_on(database, "COMMIT");
  } catch (...) {
    sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

void prepare_database(State& s) {
  sqlite3_busy_timeout(s.database, longest_wait_ms);
  turn_journal_on(s.database);
  execute_on(s.database, "PRAGMA synchronous = NORMAL");
  int version = version_of(s.database);
  if (version == 0) {
    make_layout(s.database);
    version = version_of(s.database);
  }
  if (version != layout_version) {
    throw exc::error_t(
        fmt::format("Cannot use the store {:s}: a newer version of the program made it; use that "
                    "version, or set KVALO_HOME to another folder",
                    s.path));
  }
}

void close_connection(State& s) noexcept {
  // A connection inherited through a fork is left alone: closing it would disturb its owner.
  if (s.database != nullptr && s.owner == ::getpid()) sqlite3_close_v2(s.database);
  s.database = nullptr;
  s.damaged = false;
}

// Opens the connection if it is not open; false if there is no file and none is wanted.
bool open_connection(State& s, Session::Absent absent) {
  if (s.database != nullptr && s.owner == ::getpid()) return true;
  s.database = nullptr;
  std::error_code error;
  std::filesystem::path path = sys::state_path() / "state.db";
  if (std::filesystem::path absolute = std::filesystem::absolute(path, error); !error) path = absolute;
  s.path = path.string();
  if (absent == Session::Absent::leave && !std::filesystem::exists(path, error) && !error) return false;
  std::filesystem::create_directories(path.parent_path(), error);
  s.owner = ::getpid();
  try {
    const int code =
        sqlite3_open_v2(s.path.c_str(), &s.database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    check(s.database, code);
    sqlite3_extended_result_codes(s.database, 1);
    prepare_database(s);
  } catch (...) {
    close_connection(s);
    throw;
  }
  return true;
}

}  // namespace

Statement::Statement(sqlite3* database, const char* sql) : database_(database) {
  check(sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr));
}

Statement::~Statement() { sqlite3_finalize(statement_); }

void Statement::check(int code) const {
  if (code != SQLITE_OK) fail(database_, code);
}

Statement& Statement::bind(int parameter, std::string_view text) {
  // A null pointer would bind NULL, not the empty text.
  const char* begin = text.empty() ? "" : text.data();
  check(sqlite3_bind_text64(statement_, parameter, begin, text.size(), SQLITE_STATIC, SQLITE_UTF8));
  return *this;
}

Statement& Statement::bind(int parameter, int64_t number) {
  check(sqlite3_bind_int64(statement_, parameter, number));
  return *this;
}

Statement& Statement::bind(int parameter, double number) {
  check(sqlite3_bind_double(statement_, parameter, number));
  return *this;
}

bool Statement::step() {
  const int code = sqlite3_step(statement_);
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) fail(database_, code);
  check(sqlite3_reset(statement_));
  return false;
}

int Statement::run() {
  while (step()) {
  }
  return sqlite3_changes(database_);
}

bool Statement::is_null(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
int64_t Statement::integer(int column) const { return sqlite3_column_int64(statement_, column); }
double Statement::real(int column) const { return sqlite3_column_double(statement_, column); }

std::string_view Statement::text(int column) const {
  const unsigned char* begin = sqlite3_column_text(statement_, column);
  if (begin == nullptr) return {};
  return {reinterpret_cast<const char*>(begin),
          static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

Session::Session(Absent absent) : lock_(state().mutex) {
  if (open_connection(state(), absent)) database_ = state().database;
}

Session::~Session() {
  if (state().damaged) close_connection(state());
}

void Session::execute(const char* sql) { execute_on(database_, sql); }

Stamp stamp() {
  Stamp result;
  const std::string path = (sys::state_path() / "state.db").string();
  for (int i = 0; const std::string& file : {path, path + "-wal"}) {
    struct stat status;
    if (::stat(file.c_str(), &status) == 0) {
      result.sizes[i] = status.st_size;
      result.modified_ns[i] = status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec;
    }
    ++i;
  }
  return result;
}

Transaction::Transaction(Session& session) : session_(session) { session_.execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
  if (open_) sqlite3_exec(session_.database(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  session_.execute("COMMIT");
  open_ = false;
}

void close() noexcept {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  close_connection(s);
}

void before_fork() {
  state().mutex.lock();
  close_connection(state());
}

void after_fork() { state().mutex.unlock(); }

}  // namespace mirn3::store
