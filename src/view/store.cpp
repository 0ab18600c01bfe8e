// One function for each record, and the count of pinned memory.
#include "view/store.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "runtime/log.h"
#include "runtime/mem.h"

namespace kvalo_view {

namespace {

namespace ilc = mirn3::ilc;
using ilc::name_hash;

constexpr size_t most_notices = 20;
constexpr size_t most_objects = 10'000;  // annotations of one chart

template <size_t n>
std::string text_of(const char (&field)[n]) {
  return {field, strnlen(field, n)};
}

Kind kind_of(uint32_t id) {
  switch (id) {
    case name_hash("chart2d_bool"):
      return Kind::boolean;
    case name_hash("chart2d_cross"):
      return Kind::cross;
    case name_hash("chart2d_fft"):
      return Kind::fft;
    case name_hash("chart2d_bode"):
      return Kind::bode;
    case name_hash("chart2d_xcorr"):
      return Kind::xcorr;
    case name_hash("chart2d_hist"):
      return Kind::hist;
    case name_hash("chart2d_heatmap"):
      return Kind::heatmap;
    case name_hash("chart2d_spectro"):
      return Kind::spectro;
    case name_hash("chart3d_line"):
      return Kind::line3d;
    case name_hash("chart3d_mesh"):
      return Kind::mesh;
    case name_hash("chart1d_synoptic"):
      return Kind::synoptic;
    default:
      return Kind::line;
  }
}

double number_of(const mirn3::var_t& value) {
  switch (static_cast<mirn3::tag_t>(value.tag)) {
    case mirn3::tag_t::boolean:
      return value.value.boolean ? 1 : 0;
    case mirn3::tag_t::int32:
      return value.value.int32;
    case mirn3::tag_t::uint32:
      return value.value.uint32;
    case mirn3::tag_t::int64:
      return static_cast<double>(value.value.int64);
    case mirn3::tag_t::float64:
      return value.value.float64;
    default:
      return 0;
  }
}

uint64_t id_of(const mirn3::var_t& value) {
  return value.tag == static_cast<uint8_t>(mirn3::tag_t::uint64) ? value.value.uint64
                                                                 : static_cast<uint64_t>(number_of(value));
}

// The charts' samples in bytes, a buffer that several share once.
uint64_t pinned_bytes(const State& state) {
  std::map<const double*, uint64_t> buffers;
  for (const auto& chart : state.charts) {
    for (const auto& series : chart->series) {
      for (const auto* samples : series->data->buffers()) {
        uint64_t& bytes = buffers[samples->data()];
        bytes = std::max<uint64_t>(bytes, samples->size() * sizeof(double));
      }
    }
  }
  uint64_t sum = 0;
  for (const auto& [at, bytes] : buffers) sum += bytes;
  return sum;
}

// A change of one state into the next. Charts are shared between states: `edit` gives a copy to write to.
class Change {
 public:
  Change(State& state, uint32_t& next_key) : state_(state), next_key_(next_key) {}

  void chart(uint32_t message, const dto_chart_t& record) {
    Chart* chart = edit(record.id);
    if (chart == nullptr) {
      Chart fresh;
      fresh.key = next_key_++;
      fresh.id = record.id;
      fresh.kind = kind_of(message);
      fresh.page = current_page();
      state_.charts.push_back(std::make_shared<Chart>(std::move(fresh)));
      chart = edit(record.id);
    }
    if (record.series_id == 0) return;
    Series series;
    series.id = record.series_id;
    series.name = record.name;
    series.full_name = record.full_name;
    series.is_right = record.side == static_cast<uint64_t>(ilc::side_t::right);
    series.style = static_cast<ilc::style_t>(record.style);
    series.param = record.param;
    series.param2 = record.param2;
    series.width = record.width;
    series.vmin = record.vmin;
    series.vmax = record.vmax;
    series.color = {record.red, record.green, record.blue};
    const auto same = std::find_if(chart->series.begin(), chart->series.end(),
                                   [&](const auto& s) { return s->id == record.series_id; });
    if (same == chart->series.end()) {
      series.key = static_cast<uint32_t>(chart->series.size());
      series.data = std::make_shared<Data>(record, nullptr);
      chart->series.push_back(std::make_shared<Series>(std::move(series)));
      return;
    }
    series.key = (*same)->key;
    series.version = (*same)->version + 1;
    series.data = std::make_shared<Data>(record, (*same)->data);
    *same = std::make_shared<Series>(std::move(series));
    state_.is_live = true;
  }

  void set_chart(const dto_chart_set_chart_t& record) {
    Chart* chart = edit(record.id);
    if (chart == nullptr) return;
    const auto take = [](std::optional<double>& to, double value) {
      if (value != -1e80) to = value;
    };
    take(chart->left.max, record.lmax);
    take(chart->left.min, record.lmin);
    take(chart->right.max, record.rmax);
    take(chart->right.min, record.rmin);
    take(chart->left.tick, record.ltick);
    take(chart->right.tick, record.rtick);
    if (record.fit != '0') chart->fit = record.fit;
    if (record.xlabel[0] != '\0') chart->xlabel = text_of(record.xlabel);
  }

  void annotation(uint32_t message, const dto_obj2d_t& record) {
    Chart* chart = edit(record.chart);
    if (message == name_hash("obj2d_legend")) {
      if (chart == nullptr) return;
      chart->legend_visible = record.visible != 0;
      chart->legend_full = record.full != 0;
      chart->legend_x = record.x;
      chart->legend_y = record.y;
      return;
    }
    const bool centred = message == name_hash("obj2d_circle") || message == name_hash("obj2d_rectangle");
    Annotation object{message,
                      centred ? record.xcenter : record.x,
                      centred ? record.ycenter : record.y,
                      record.width,
                      record.height,
                      record.diameter,
                      {record.red, record.green, record.blue},
                      text_of(record.text)};
    if (record.chart != 0 && chart == nullptr) return;
    auto& objects = record.chart == 0 ? state_.objects : chart->objects;
    if (objects.size() < most_objects) objects.push_back(std::move(object));
  }

  void new_page(const dto_page_t& record) {
    const auto same = page(record.id);
    if (same == state_.pages.end()) {
      state_.pages.push_back({record.id, text_of(record.name), -1});
    } else {
      same->name = text_of(record.name);
    }
    state_.page = record.id;
  }

  void set_page(const dto_page_set_page_t& record) {
    const auto same = page(record.id);
    if (same == state_.pages.end()) return;
    if (record.cols != -1) same->cols = record.cols;
    state_.page = record.id;
  }

  void delete_page(const dto_page_t& record) {
    const std::string name = text_of(record.name);
    const auto is_meant = [&](const Page& p) { return record.id != 0 ? p.id == record.id : p.name == name; };
    std::erase_if(state_.charts, [&](const auto& c) {
      const auto of_chart = page(c->page);
      return of_chart != state_.pages.end() && is_meant(*of_chart);
    });
    std::erase_if(state_.pages, is_meant);
    if (page(state_.page) == state_.pages.end())
      state_.page = state_.pages.empty() ? 0 : state_.pages.back().id;
  }

  void close(const dto_misc_t& record) {
    const uint64_t id = id_of(record.values[0]);
    const bool pages = record.key == name_hash("pages") || record.key == name_hash("all");
    const bool charts = record.key == name_hash("charts") || pages;
    if (id != 0) {
      if (pages) {
        delete_page({id, {}});
      } else if (charts) {
        std::erase_if(state_.charts, [id](const auto& c) { return c->id == id; });
      }
      return;
    }
    if (!charts) return;
    state_.charts.clear();
    state_.objects.clear();
    state_.is_live = false;
    if (pages) {
      state_.pages.clear();
      state_.page = 0;
    }
  }

  void reset() {
    state_.tab = 1;
    state_.time_format = "auto";
    state_.time_limits.reset();
    state_.global_time.reset();
    state_.bookmarks.clear();
  }

  void set(const dto_misc_t& record) {
    const double value = number_of(record.values[0]);
    switch (record.key) {
      case name_hash("tab"):
        state_.tab = static_cast<int32_t>(value);
        break;
      case name_hash("globaltime"):
        state_.global_time = value;
        break;
      case name_hash("timelimits"):
        state_.time_limits = Range{value, number_of(record.values[1])};
        break;
      case name_hash("timeformat"):
        for (const auto& format : ilc::time_format_table) {
          if (format.hash == record.values[0].value.uint32) state_.time_format = format.name;
        }
        break;
      default:
        break;
    }
  }

  void info(const dto_misc_t& record) {
    const bool is_light = number_of(record.values[0]) != 0;
    if (record.key == name_hash("theme.file")) state_.light = is_light;
    if (record.key == name_hash("theme.live")) state_.light_live = is_light;
  }

  void bookmark(const dto_misc_t& record) {
    state_.bookmarks.push_back({number_of(record.values[0]), number_of(record.values[1])});
  }

  void notice(bool is_error, std::string text) {
    if (state_.notices.size() == most_notices) state_.notices.erase(state_.notices.begin());
    state_.notices.push_back({is_error, std::move(text)});
  }

 private:
  Chart* edit(uint64_t id) {
    for (auto& chart : state_.charts) {
      if (chart->id != id) continue;
      auto copy = std::make_shared<Chart>(*chart);
      Chart* result = copy.get();
      chart = std::move(copy);
      return result;
    }
    return nullptr;
  }

  std::vector<Page>::iterator page(uint64_t id) {
    return std::find_if(state_.pages.begin(), state_.pages.end(), [id](const Page& p) { return p.id == id; });
  }

  // Charts that come before any page lie on one of their own.
  uint64_t current_page() {
    if (state_.pages.empty()) {
      state_.pages.push_back({1, "Charts", -1});
      state_.page = 1;
    }
    return state_.page;
  }

  State& state_;
  uint32_t& next_key_;
};

// Hands the record to what its message is for. Returns whether anything was done with it.
bool apply_to(Change& change, const ilc::msgdata_t& message) {
  const ilc::message_t* row = ilc::find_message(message.id);
  if (row == nullptr || message.data == nullptr) return false;
  const void* data = message.data.get();
  const auto& misc = *static_cast<const dto_misc_t*>(data);
  switch (message.id) {
    case name_hash("app_info"):
      change.info(misc);
      return true;
    case name_hash("misc_set"):
      change.set(misc);
      return true;
    case name_hash("misc_reset"):
      change.reset();
      return true;
    case name_hash("misc_close"):
      change.close(misc);
      return true;
    case name_hash("misc_bookmark"):
      change.bookmark(misc);
      return true;
    case name_hash("chart_set"):
      change.set_chart(*static_cast<const dto_chart_set_chart_t*>(data));
      return true;
    case name_hash("page_new_page"):
      change.new_page(*static_cast<const dto_page_t*>(data));
      return true;
    case name_hash("page_set_page"):
      change.set_page(*static_cast<const dto_page_set_page_t*>(data));
      return true;
    case name_hash("page_del_page"):
      change.delete_page(*static_cast<const dto_page_t*>(data));
      return true;
    case name_hash("app_error"):
      change.notice(true, text_of(static_cast<const dto_error_t*>(data)->text));
      return true;
    default:
      break;
  }
  const std::string_view record = row->record;
  if (record == "dto_chart_t") {
    change.chart(message.id, *static_cast<const dto_chart_t*>(data));
  } else if (record == "dto_obj2d_t") {
    change.annotation(message.id, *static_cast<const dto_obj2d_t*>(data));
  } else {
    return false;
  }
  return true;
}

std::optional<Request> request_of(const ilc::msgdata_t& message) {
  const void* data = message.data.get();
  if (data == nullptr) return {};
  switch (message.id) {
    case name_hash("app_exit"):
      return Request{Request::Type::exit, 0, {}, {}};
    case name_hash("app_error"):
      return Request{Request::Type::error, 0, text_of(static_cast<const dto_error_t*>(data)->text), {}};
    case name_hash("app_selfie"):
      return Request{Request::Type::selfie, 0, text_of(static_cast<const dto_misc_t*>(data)->text), {}};
    case name_hash("chart_save"): {
      const auto& record = *static_cast<const dto_chart_save_t*>(data);
      return Request{Request::Type::save, record.id, text_of(record.path), text_of(record.size)};
    }
    default:
      return {};
  }
}

}  // namespace

void Store::apply(const ilc::msgdata_t& message) {
  bool changed = false;
  std::shared_ptr<const State> old;  // dies outside of the lock: it may be the last to hold samples
  {
    const std::lock_guard lock(mutex_);
    auto next = std::make_shared<State>(*state_);
    Change change(*next, next_key_);
    changed = apply_to(change, message);
    if (changed) {
      next->version++;
      next->pinned = pinned_bytes(*next);
      const uint64_t budget = mirn3::mem::memory_bank;
      if (!warned_ && budget != 0 && next->pinned > budget / 2) {
        warned_ = true;
        const std::string text = fmt::format(
            "Charts keep {:.1f} GB of samples in memory, more than half of the budget; "
            "kvalo.close(\"charts\") "
            "frees them",
            static_cast<double>(next->pinned) / 1e9);
        change.notice(false, text);
        mirn3::log::write(mirn3::log::warning, text);
      }
      old = std::exchange(state_, std::move(next));
    }
  }
  old.reset();
  if (changed && on_change) on_change();
  if (const auto request = request_of(message); request && on_request) on_request(*request);
}

ilc::handler_t Store::handler() {
  return [this](std::shared_ptr<ilc::msgdata_t> message) { apply(*message); };
}

std::shared_ptr<const State> Store::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void Store::clear() {
  auto record = std::make_shared<dto_misc_t>();
  record->key = name_hash("pages");
  apply({name_hash("misc_close"), record});
}

}  // namespace kvalo_view
