// A small language for block models in tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "blocks/plexo.h"
#include "runtime/exc.h"

namespace blocks_test {

inline constexpr double inf = std::numeric_limits<double>::infinity();
inline constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

using Numbers = std::vector<double>;
using Given = std::vector<std::pair<const char*, plexo::value_t>>;

inline plexo::value_t list(Numbers numbers) { return plexo::list_t{std::move(numbers), {}}; }
inline plexo::value_t rows(std::vector<Numbers> all) {
  std::vector<plexo::list_t> result;
  for (Numbers& row : all) result.push_back({std::move(row), {}});
  return result;
}
inline plexo::value_t text(const char* characters) { return std::string(characters); }
inline plexo::value_t series(const Numbers& x, const Numbers& y) {
  auto result = std::make_shared<plexo::series_t>();
  for (const auto& [from, to] : {std::pair(&x, &result->x), std::pair(&y, &result->y)}) {
    to->resize(from->size());
    std::copy(from->begin(), from->end(), to->data());
  }
  return result;
}

// The same number, or both NaN.
inline bool same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0 || (a != a && b != b); }

class Model {
 public:
  Model() : links(std::make_shared<plexo::PropertiesModel>()), meta(plexo::create_empty_meta_model(links)) {
    meta->add(plexo::factory::create("subsys"), 0);
    meta->block(1)->set_name("mainsys");
  }

  uint64_t add(const char* type, const Given& given = {}, uint64_t parent = 1, const char* name = "") {
    auto properties = std::make_shared<plexo::PropertiesBlock>();
    properties->name = name;
    for (const auto& [key, value] : given) properties->set(plexo::property_named(key).value(), value);
    auto block = plexo::factory::create(type, properties);
    if (block == nullptr) throw mirn3::exc::error_t(std::string("no kind ") + type);
    return meta->add(std::move(block), parent);
  }
  void link(uint64_t from, uint64_t to, int port_to = 1, int port_from = 1, const char* name = "") {
    links->insert_link(from, to, static_cast<int16_t>(port_from), static_cast<int16_t>(port_to), name);
  }
  // An outport of the top block that shows an output.
  void show(uint64_t from, const std::string& name, int port_from = 1) {
    link(from, add("outport", {}, 1, name.c_str()), 1, port_from);
  }

  int check() { return meta->meta_process(0); }
  int run() {
    if (const int code = check()) return -code;
    EXPECT_TRUE(meta->build(*exec));
    return exec->run();
  }
  // A signal of the last run.
  Numbers shown(const std::string& name) const {
    for (const auto& signal : exec->results().signals) {
      if (signal.name == name)
        return {exec->column(signal.column), exec->column(signal.column) + exec->samples()};
    }
    return {};
  }

  std::shared_ptr<plexo::PropertiesModel> links;
  std::shared_ptr<plexo::IMetaModel> meta;
  std::shared_ptr<plexo::IExecModel> exec = plexo::create_empty_exec_model();
};

}  // namespace blocks_test
