// Orders the cells of a flat model: by level, ties by id.
#include <algorithm>
#include <numeric>

#include "blocks/flatten.h"

namespace plexo {

namespace {

// Groups that grow together.
class Groups {
 public:
  explicit Groups(size_t n) : parent_(n) { std::iota(parent_.begin(), parent_.end(), 0u); }

  uint32_t of(uint32_t i) {
    while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
    return i;
  }
  void join(uint32_t a, uint32_t b) { parent_[of(a)] = of(b); }

 private:
  std::vector<uint32_t> parent_;
};

// The cells in an order in which each comes after those that it waits for, with their levels. Those on and
// after a cycle are missing.
std::vector<uint32_t> level_cells(FlatModel& flat, const std::vector<uint32_t>& maker) {
  const size_t n = flat.cells.size();
  std::vector<uint32_t> waits(n), first(n + 1), readers, ready;
  const auto each_wait = [&](auto&& visit) {
    for (uint32_t i = 0; i < n; ++i) {
      const Cell& cell = flat.cells[i];
      if (!row_of(cell.op).reads_now) continue;
      for (uint16_t k = 0; k < cell.inputs; ++k) visit(maker[flat.inputs[cell.input + k]], i);
    }
  };
  each_wait([&](uint32_t from, uint32_t to) {
    ++waits[to];
    ++first[from + 1];
  });
  std::partial_sum(first.begin(), first.end(), first.begin());
  readers.resize(first[n]);
  std::vector<uint32_t> next(first.begin(), first.end() - 1);
  each_wait([&](uint32_t from, uint32_t to) { readers[next[from]++] = to; });

  for (uint32_t i = 0; i < n; ++i) {
    flat.cells[i].level = 1;
    if (waits[i] == 0) ready.push_back(i);
  }
  for (size_t done = 0; done < ready.size(); ++done) {
    const uint32_t from = ready[done];
    for (uint32_t r = first[from]; r < first[from + 1]; ++r) {
      const uint32_t to = readers[r];
      flat.cells[to].level = std::max(flat.cells[to].level, flat.cells[from].level + 1);
      if (--waits[to] == 0) ready.push_back(to);
    }
  }
  for (uint32_t i = 0; i < n; ++i) {
    if (waits[i] != 0) flat.cells[i].level = 0;
  }
  return ready;
}

// Every cell without a level waits for another one without: going back from one meets the cycle.
std::vector<uint32_t> find_cycle(const FlatModel& flat, const std::vector<uint32_t>& maker) {
  const size_t n = flat.cells.size();
  std::vector<bool> seen(n);
  std::vector<uint32_t> trail;
  uint32_t at = 0;
  while (flat.cells[at].level != 0) ++at;
  while (!seen[at]) {
    seen[at] = true;
    trail.push_back(at);
    const Cell& cell = flat.cells[at];
    for (uint16_t k = 0; k < cell.inputs; ++k) {
      const uint32_t from = maker[flat.inputs[cell.input + k]];
      if (flat.cells[from].level == 0) {
        at = from;
        break;
      }
    }
  }
  trail.erase(trail.begin(), std::ranges::find(trail, at));
  std::ranges::reverse(trail);  // in the direction of the signals
  std::ranges::rotate(trail, std::ranges::min_element(trail));
  return trail;
}

}  // namespace

bool sort_cells(FlatModel& flat, std::vector<uint32_t>& loop) {
  const auto n = static_cast<uint32_t>(flat.cells.size());
  std::vector<uint32_t> maker(flat.signal_count);
  for (uint32_t i = 0; i < n; ++i) {
    for (uint16_t port = 0; port < flat.cells[i].outputs; ++port) maker[flat.cells[i].signal + port] = i;
  }
  if (level_cells(flat, maker).size() != n) {
    loop = find_cycle(flat, maker);
    return false;
  }

  Groups groups(n);
  for (uint32_t i = 0; i < n; ++i) {
    const Cell& cell = flat.cells[i];
    for (uint16_t k = 0; k < cell.inputs; ++k) groups.join(i, maker[flat.inputs[cell.input + k]]);
  }
  for (uint32_t i = 0; i < n; ++i) {
    flat.zones += groups.of(i) == i;
    flat.tiers = std::max(flat.tiers, flat.cells[i].level);
  }

  std::vector<uint32_t> order(n);
  std::iota(order.begin(), order.end(), 0u);
  std::ranges::stable_sort(order, {}, [&](uint32_t i) { return flat.cells[i].level; });
  std::vector<Cell> cells;
  std::vector<std::string> names;
  std::vector<uint64_t> ids;
  for (const uint32_t i : order) {
    cells.push_back(flat.cells[i]);
    names.push_back(std::move(flat.cell_names[i]));
    ids.push_back(flat.cell_ids[i]);
  }
  flat.cells = std::move(cells);
  flat.cell_names = std::move(names);
  flat.cell_ids = std::move(ids);
  return true;
}

}  // namespace plexo
