// The registry of containers and series: its tables, the look-up by name, and making room.
#include "containers/bank.h"

#include <algorithm>
#include <regex>

#include "objects/detached.h"
#include "objects/frame.h"
#include "objects/time_series.h"
#include "runtime/log.h"
#include "runtime/mem.h"
#include "runtime/num.h"
#include "runtime/num_ramp.h"
#include "runtime/python_lock.h"

namespace mirn2 {

rd::Bank& bank() { return static_cast<rd::Bank&>(registry()); }

}  // namespace mirn2

namespace mirn2::rd {

namespace {

// A compiled expression with which no long name and no hostile pattern can cause a crash or an endless
// search: the standard library's polynomial mode does not recurse for each character. Back-references need
// its recursive mode, which gets only short names.
class Expression {
 public:
  explicit Expression(const std::string& text) {
    constexpr size_t longest_expression = 1000;  // compiling recurses too
    if (text.size() > longest_expression) {
      fail(PyExc_Exception, "Invalid regular expression: {:s}", "longer than 1000 characters");
    }
    try {
      compile(text, std::regex::ECMAScript | std::regex_constants::__polynomial);
    } catch (const std::regex_error& error) {
      if (error.code() != std::regex_constants::error_complexity) refuse(error);
      recursive_ = true;
    }
    if (!recursive_) return;
    try {
      compile(text, std::regex::ECMAScript);
    } catch (const std::regex_error& error) {
      refuse(error);
    }
  }

  bool matches_whole(const std::string& name) const {
    return is_safe(name) && std::regex_match(name, whole_);
  }
  bool is_found_in(const std::string& name) const {
    return is_safe(name) && std::regex_match(name, anywhere_);
  }

 private:
  // To search is to match with anything around: std::regex_search would start again at every character.
  void compile(const std::string& text, std::regex::flag_type flags) {
    whole_.assign(text, flags);
    anywhere_.assign("[\\s\\S]*(?:" + text + ")[\\s\\S]*", flags);
  }

  [[noreturn]] static void refuse(const std::regex_error& error) {
    fail(PyExc_Exception, "Invalid regular expression: {:s}", error.what());
  }

  bool is_safe(const std::string& name) const {
    constexpr size_t longest_name = 100'000;
    constexpr size_t longest_recursive = 2'000;
    return name.size() <= (recursive_ ? longest_recursive : longest_name);
  }

  std::regex whole_;
  std::regex anywhere_;
  bool recursive_ = false;
};

}  // namespace

uint64_t Bank::add(std::shared_ptr<TimeSeries> series) {
  const std::lock_guard guard(lock_);
  series->id = mirn3::num::create_id();
  return variables_.emplace(series->id, std::move(series)).first->first;
}

void Bank::adopt(Container& container) {
  for (auto& series : container.take_new_series()) add(std::move(series));
}

uint64_t Bank::add(std::shared_ptr<Container> container) {
  adopt(*container);
  const std::lock_guard guard(lock_);
  container->id = mirn3::num::create_id();
  return containers_.emplace(container->id, std::move(container)).first->first;
}

uint64_t Bank::add_detached(std::string_view name, TimeSeriesObject* object) {
  auto series = std::make_shared<TimeSeries>();
  series->main_name = name;
  series->full_name = name;
  series->readers.push_back(std::make_shared<ReaderDetached>(object));
  series->attach(object);
  return add(std::move(series));
}

std::shared_ptr<TimeSeries> Bank::find_by_id(uint64_t id) const {
  const std::lock_guard guard(lock_);
  const auto found = variables_.find(id);
  return found != variables_.end() ? found->second : nullptr;
}

// Entries leave the tables under the lock and are destroyed after its release: what a series held is released
// in turn, and may ask for the lock again.
void Bank::drop(uint64_t id) noexcept {
  decltype(variables_)::node_type dropped;
  const std::lock_guard guard(lock_);
  dropped = variables_.extract(id);
}

void Bank::drop_container(uint64_t id) noexcept {
  decltype(containers_)::node_type dropped;
  const std::lock_guard guard(lock_);
  dropped = containers_.extract(id);
}

std::shared_ptr<TimeSeries> Bank::find(const std::string& text) const {
  const Expression expression(text);
  const std::lock_guard guard(lock_);
  for (const auto& [id, series] : variables_) {
    if (expression.matches_whole(series->main_name) || expression.is_found_in(series->full_name))
      return series;
  }
  return nullptr;
}

std::shared_ptr<TimeSeries> Bank::find_named(std::string_view name) const {
  const std::lock_guard guard(lock_);
  for (const auto which : {&TimeSeries::main_name, &TimeSeries::full_name}) {
    for (const auto& [id, series] : variables_) {
      if ((*series).*which == name) return series;
    }
  }
  return nullptr;
}

std::vector<std::shared_ptr<TimeSeries>> Bank::list(const std::string& text) const {
  const Expression expression(text);
  std::vector<std::shared_ptr<TimeSeries>> matches;
  const std::lock_guard guard(lock_);
  for (const auto& [id, series] : variables_) {
    if (expression.matches_whole(series->main_name)) matches.push_back(series);
  }
  return matches;
}

std::vector<std::shared_ptr<Container>> Bank::containers() const {
  std::vector<std::shared_ptr<Container>> all;
  const std::lock_guard guard(lock_);
  for (const auto& [id, container] : containers_) all.push_back(container);
  return all;
}

void Bank::reserve_memory() {
  namespace mem = mirn3::mem;
  const auto has_room = [] { return mem::memory_used < mem::memory_bank; };
  if (has_room()) return;
  const mirn3::python::Lock interpreter;
  std::vector<Ref> dropped;  // released after the lock of the tables, before the interpreter's
  const std::lock_guard guard(lock_);
  mirn3::num::forget_ramp();
  for (const auto& [id, container] : containers_) {
    if (has_room()) break;
    for (const auto& reader : container->readers()) reader->forget();
  }
  std::vector<TimeSeries*> oldest_first;
  for (const auto& [id, series] : variables_) {
    if (series->is_loaded()) oldest_first.push_back(series.get());
  }
  std::ranges::stable_sort(oldest_first, {}, &TimeSeries::last_load);
  for (TimeSeries* series : oldest_first) {
    if (has_room()) break;
    unload(*series, dropped);
  }
}

}  // namespace mirn2::rd
