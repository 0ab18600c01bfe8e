// mirn2::rd::Bank: the process-wide registry, which owns every container and series record.
//
// Both tables iterate in order of creation (identifiers ascend). The lock guards them against the
// memory-reserve operation, which any thread that allocates samples may call. Order of locks: the interpreter
// lock first, then this one, then those of readers (forget) and of the runtime. Release no Python object and
// no series while holding this lock: their destruction may ask for it again.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "containers/container.h"
#include "objects/series.h"

namespace mirn2::rd {

class Bank : public SeriesRegistry {
 public:
  // Gives the series a new identifier and enters it.
  uint64_t add(std::shared_ptr<TimeSeries> series);

  // The same for a container, after its new series.
  uint64_t add(std::shared_ptr<Container> container);

  // Enters the series that the container has created since it was entered.
  void adopt(Container& container);

  uint64_t add_detached(std::string_view name, TimeSeriesObject* object) override;
  std::shared_ptr<TimeSeries> find_by_id(uint64_t id) const override;
  void drop(uint64_t id) noexcept override;
  void drop_container(uint64_t id) noexcept;

  // The first series whose whole main name matches, or in whose full name the expression is found.
  // Null if there is none. Throws script_error "Invalid regular expression: ...".
  std::shared_ptr<TimeSeries> find(const std::string& expression) const;

  // The first series of exactly this main name, or else of this full name; null when there is none.
  std::shared_ptr<TimeSeries> find_named(std::string_view name) const;

  // Every series whose whole main name matches.
  std::vector<std::shared_ptr<TimeSeries>> list(const std::string& expression) const;

  // Every container, in table order.
  std::vector<std::shared_ptr<Container>> containers() const;

  // Makes room: while memory_used is not below memory_bank, drops what readers keep for speed, then the
  // samples of the series that were loaded longest ago and can be loaded again. Any thread may call it; it
  // takes the interpreter lock.
  void reserve_memory();

 private:
  mutable std::mutex lock_;
  std::map<uint64_t, std::shared_ptr<Container>> containers_;
  std::map<uint64_t, std::shared_ptr<TimeSeries>> variables_;
};

}  // namespace mirn2::rd

namespace mirn2 {

// The registry of this process; throws RuntimeError after teardown.
rd::Bank& bank();

}  // namespace mirn2
