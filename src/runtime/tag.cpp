// Tag tables in memory, and their rows in the store.
//
// A key is read in whole when it is first used. New numbers come from blocks that this process claims
// in the store, one short transaction per block, each block twice as long as the one before: no two
// processes hand out the same number, and a column of a million texts costs some thirty transactions.
// save() writes the new texts and gives the rest of a block back if nobody has claimed past it.
//
// Without a usable store numbers are counted up in memory. Such unclaimed numbers are saved later only
// if no process has claimed them meanwhile.
#include "runtime/tag.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "runtime/exc.h"
#include "runtime/lifetime.h"
#include "runtime/log.h"
#include "runtime/store.h"

namespace mirn3::tag {

namespace {

using store::Session;
using store::Statement;
using store::Transaction;

constexpr int64_t longest_block = int64_t{1} << 16;
constexpr int64_t number_limit = int64_t{1} << 53;  // sample values are doubles

struct Hash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};

struct Unsaved {
  int64_t number;
  bool claimed;  // came from a block of the store
};

struct Table {
  std::unordered_map<int64_t, std::string> texts;
  std::unordered_map<std::string_view, int64_t> numbers;  // views into `texts`
  std::vector<Unsaved> unsaved;
  int64_t highest = -1;
  int64_t next = 0;  // the claimed block that is left: next ... end - 1
  int64_t end = 0;
  int64_t block = 1;
  bool complete = false;  // the rows that the store had when the key was first used are in
};

struct State {
  std::mutex mutex;
  std::unordered_map<std::string, Table, Hash, std::equal_to<>> tables;
  std::pair<const std::string, Table>* latest = nullptr;  // used last: readers stay with one key
  int64_t seen = -1;           // rows of the store up to this one are in, for the keys in `tables`
  store::Stamp looked_at;      // the store's state when load() last took rows in
  bool without_store = false;  // the store failed; save() tries again
  bool told = false;           // and the log says so
};

// Never destroyed: threads may outlive main().
State& state() {
  static State& kept = *new State;
  return kept;
}

void enter(Table& table, int64_t number, std::string_view text) {
  if (number < 0 || number >= number_limit) return;
  const auto [place, is_new] = table.texts.try_emplace(number, text);
  if (!is_new) return;
  table.numbers.try_emplace(place->second, number);  // the first number a text had stays
  table.highest = std::max(table.highest, number);
}

int64_t last_row(Session& session) {
  Statement query(session.database(), "SELECT coalesce(max(rowid), 0) FROM tag");
  return query.step() ? query.integer(0) : 0;
}

// Takes in the rows of known keys that were saved since the last time.
void take_in_new_rows(State& s, Session& session) {
  Statement query(session.database(),
                  "SELECT rowid, key, number, text FROM tag WHERE rowid > ?1 ORDER BY rowid");
  query.bind(1, s.seen);
  while (query.step()) {
    s.seen = query.integer(0);
    if (const auto found = s.tables.find(query.text(1)); found != s.tables.end()) {
      enter(found->second, query.integer(2), query.text(3));
    }
  }
}

void complete(State& s, std::string_view key, Table& table) {
  Session session(Session::Absent::leave);
  if (session.is_open()) {
    if (s.seen < 0) s.seen = last_row(session);
    Statement query(session.database(), "SELECT number, text FROM tag WHERE key = ?1 ORDER BY number");
    query.bind(1, key);
    while (query.step()) enter(table, query.integer(0), query.text(1));
  }
  table.complete = true;
}

int64_t claimed_up_to(Session& session, std::string_view key) {
  Statement query(session.database(),
                  "SELECT coalesce((SELECT next FROM tag_next WHERE key = ?1), "
                  "                (SELECT max(number) + 1 FROM tag WHERE key = ?1), 0)");
  query.bind(1, key);
  return query.step() ? std::clamp(query.integer(0), int64_t{0}, number_limit) : 0;
}

void claim_up_to(Session& session, std::string_view key, int64_t next) {
  Statement update(session.database(),
                   "INSERT INTO tag_next (key, next) VALUES (?1, ?2) "
                   "ON CONFLICT (key) DO UPDATE SET next = max(next, excluded.next)");
  update.bind(1, key).bind(2, next).run();
}

// Claims the next block of numbers; takes in what others saved on the way.
void claim_block(State& s, std::string_view key, Table& table) {
  Session session(Session::Absent::create);
  Transaction transaction(session);
  s.seen = std::max(s.seen, int64_t{0});
  take_in_new_rows(s, session);
  const int64_t first = claimed_up_to(session, key);
  claim_up_to(session, key, first + table.block);
  transaction.commit();
  table.next = first;
  table.end = first + table.block;
  table.block = std::min(table.block * 2, longest_block);
}

// A number for a text that has none. Throws if the store fails.
int64_t create(State& s, std::string_view key, Table& table, std::string_view text) {
  for (;;) {
    if (table.next == table.end) {
      claim_block(s, key, table);
      if (const auto found = table.numbers.find(text); found != table.numbers.end()) return found->second;
    }
    const int64_t number = table.next++;
    if (table.texts.contains(number)) continue;  // given without the store, before it came back
    enter(table, number, text);
    table.unsaved.push_back({number, true});
    return number;
  }
}

int64_t create_without_store(Table& table, std::string_view text) {
  const int64_t number = table.highest + 1;
  enter(table, number, text);
  table.unsaved.push_back({number, false});
  return number;
}

// Notes that the store failed; returns what the log should say, which is nothing after the first time.
std::string note_failure(State& s, const exc::error_t& failure) {
  s.without_store = true;
  if (std::exchange(s.told, true)) return {};
  return fmt::format("Texts of samples are kept in memory only: {:s}", failure.what());
}

void tell(const std::string& message) {
  if (!message.empty()) log::write(log::warning, message);
}

// The key's table, with what the store holds of it if the store can be used.
Table& table_of(State& s, std::string_view key, std::string& message) {
  if (s.latest == nullptr || s.latest->first != key) {
    auto found = s.tables.find(key);
    if (found == s.tables.end()) found = s.tables.try_emplace(std::string(key)).first;
    s.latest = &*found;
  }
  Table& table = s.latest->second;
  if (!table.complete && !s.without_store) {
    try {
      complete(s, key, table);
    } catch (const exc::error_t& failure) {
      message = note_failure(s, failure);
    }
  }
  return table;
}

// Whether the store has this very text at a number that was taken already.
bool is_stored(Session& session, std::string_view key, int64_t number, std::string_view text) {
  Statement query(session.database(), "SELECT 1 FROM tag WHERE key = ?1 AND number = ?2 AND text = ?3");
  const bool found = query.bind(1, key).bind(2, number).bind(3, text).step();
  return found;
}

// Writes a table's new texts; returns how many of them found their number taken.
size_t write_table(Session& session, Statement& insert, std::string_view key, const Table& table) {
  size_t refused = 0;
  int64_t last = -1;
  const int64_t claimed = claimed_up_to(session, key);
  for (const Unsaved& entry : table.unsaved) {
    const std::string& text = table.texts.at(entry.number);
    if (!entry.claimed && entry.number < claimed) {
      refused += is_stored(session, key, entry.number, text) ? 0 : 1;
      continue;
    }
    if (insert.bind(1, key).bind(2, entry.number).bind(3, text).run() == 0) {
      refused += is_stored(session, key, entry.number, text) ? 0 : 1;
    }
    last = std::max(last, entry.number);
  }
  if (last >= claimed) claim_up_to(session, key, last + 1);
  Statement give_back(session.database(), "UPDATE tag_next SET next = ?1 WHERE key = ?2 AND next = ?3");
  if (table.next != table.end) give_back.bind(1, table.next).bind(2, key).bind(3, table.end).run();
  return refused;
}

bool needs_saving(const Table& table) { return !table.unsaved.empty() || table.next != table.end; }

}  // namespace

double fetch_or_create(std::string_view key, std::string_view text) {
  State& s = state();
  std::string message;
  int64_t number = -1;
  {
    const std::lock_guard lock(s.mutex);
    Table& table = table_of(s, key, message);
    if (const auto found = table.numbers.find(text); found != table.numbers.end()) {
      number = found->second;
    } else {
      if (!s.without_store) {
        try {
          number = create(s, key, table, text);
        } catch (const exc::error_t& failure) {
          message = note_failure(s, failure);
        }
      }
      if (number < 0) number = create_without_store(table, text);
    }
  }
  tell(message);
  return static_cast<double>(number);
}

std::string get(std::string_view key, double value) {
  // NaN fails the first comparison.
  if (!(value >= 0.0 && value < static_cast<double>(number_limit)) || value != std::floor(value)) return {};
  State& s = state();
  std::string message;
  std::string text;
  {
    const std::lock_guard lock(s.mutex);
    const Table& table = table_of(s, key, message);
    const auto found = table.texts.find(static_cast<int64_t>(value));
    if (found != table.texts.end()) text = found->second;
  }
  tell(message);
  return text;
}

void load() {
  State& s = state();
  std::string message;
  {
    const std::lock_guard lock(s.mutex);
    if (s.tables.empty() || s.without_store) return;
    // Every load of a series comes here: asking the files is a hundred times cheaper than a query.
    const store::Stamp now = store::stamp();
    if (now == s.looked_at) return;
    try {
      Session session(Session::Absent::leave);
      if (session.is_open()) take_in_new_rows(s, session);
      s.looked_at = now;
    } catch (const exc::error_t& failure) {
      message = note_failure(s, failure);
    }
  }
  tell(message);
}

void save() {
  State& s = state();
  size_t refused = 0;
  {
    const std::lock_guard lock(s.mutex);
    if (std::none_of(s.tables.begin(), s.tables.end(),
                     [](auto& entry) { return needs_saving(entry.second); })) {
      return;
    }
    Session session(Session::Absent::create);
    Transaction transaction(session);
    s.seen = std::max(s.seen, int64_t{0});
    take_in_new_rows(s, session);
    {
      Statement insert(session.database(),
                       "INSERT INTO tag (key, number, text) VALUES (?1, ?2, ?3) "
                       "ON CONFLICT (key, number) DO NOTHING");
      for (const auto& [key, table] : s.tables) {
        if (needs_saving(table)) refused += write_table(session, insert, key, table);
      }
    }
    const int64_t last = last_row(session);
    transaction.commit();
    s.seen = last;
    s.without_store = false;
    s.told = false;
    for (auto& [key, table] : s.tables) {
      table.unsaved.clear();
      table.next = table.end = 0;
    }
  }
  if (refused != 0) {
    log::write(
        log::warning,
        fmt::format("{:d} texts of samples were not saved: their numbers, given while the store could not "
                    "be used, belong to other texts there; load the samples again",
                    refused));
  }
}

bool has_unsaved() {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  return std::any_of(s.tables.begin(), s.tables.end(),
                     [](auto& entry) { return needs_saving(entry.second); });
}

void clear() noexcept {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  s.latest = nullptr;
  s.tables.clear();
  s.seen = -1;
  s.without_store = false;
  s.told = false;
}

void before_fork() { state().mutex.lock(); }

void after_fork(bool child) {
  State& s = state();
  if (child) {
    // The claimed blocks stay with the parent.
    for (auto& [key, table] : s.tables) table.next = table.end = 0;
  }
  s.mutex.unlock();
}

}  // namespace mirn3::tag
