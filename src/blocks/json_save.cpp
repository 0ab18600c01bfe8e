// Writes models as files, one line a block and a link, so that versions of a file compare well.
#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "blocks/files.h"
#include "blocks/json_format.h"
#include "runtime/log.h"

namespace plexo::json {

namespace {

std::string quote(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string number(double value) {
  if (std::isnan(value)) return "\"float('nan')\"";
  if (std::isinf(value)) return value > 0.0 ? "\"float('inf')\"" : "\"-float('inf')\"";
  return fmt::format("{}", value);
}

std::string list(std::span<const double> numbers) {
  std::string text;
  for (const double value : numbers) text += (text.empty() ? "" : ", ") + number(value);
  return '[' + text + ']';
}

std::string list(const list_t& values) {
  std::string text;
  auto next_text = values.texts.begin();
  for (size_t i = 0; i < values.numbers.size(); ++i) {
    const bool is_text = next_text != values.texts.end() && next_text->first == i;
    text += (i == 0 ? "" : ", ") + (is_text ? quote(next_text++->second) : number(values.numbers[i]));
  }
  return '[' + text + ']';
}

struct Writer {
  std::string operator()(std::monostate) const { return "null"; }
  std::string operator()(double value) const { return number(value); }
  std::string operator()(const std::string& text) const { return quote(text); }
  std::string operator()(const list_t& values) const { return list(values); }
  std::string operator()(const std::vector<list_t>& rows) const {
    std::string text;
    for (const list_t& row : rows) text += (text.empty() ? "" : ", ") + list(row);
    return '[' + text + ']';
  }
  std::string operator()(const std::shared_ptr<series_t>& series) const {
    const auto span = [](const auto& samples) {
      return std::span<const double>(samples.data(), samples.size());
    };
    return fmt::format(R"({{"x": {}, "y": {}}})", list(span(series->x)), list(span(series->y)));
  }
};

std::string block_text(const MetaBlock& block) {
  std::string text = fmt::format(R"({{"id": {}, "kind": "{}")", block.id(), block.type());
  if (block.parent() != top_id) text += fmt::format(R"(, "parent": {})", block.parent());
  if (!block.given().name.empty()) text += ", \"name\": " + quote(block.given().name);
  for (const auto& [property, value] : block.given().all()) {
    // The content of a system is here already.
    if (property == Property::path || !block.kind().uses(property)) continue;
    text += fmt::format(R"(, "{}": {})", name_of(property), std::visit(Writer(), value));
  }
  for (size_t i = 0; i < place_keys.size(); ++i) {
    const float standard = i < 4 ? 0.0f : -1.0f;
    if (block.where()[i] != standard) text += fmt::format(R"(, "{}": {})", place_keys[i], block.where()[i]);
  }
  return text + '}';
}

std::string link_text(const Link& link) {
  std::string text = fmt::format(R"({{"from": {}, "to": {})", link.from, link.to);
  if (link.port_from != 1) text += fmt::format(R"(, "portFrom": {})", link.port_from);
  if (link.port_to != 1) text += fmt::format(R"(, "portTo": {})", link.port_to);
  if (!link.name.empty()) text += ", \"name\": " + quote(link.name);
  return text + '}';
}

}  // namespace

bool save(const IMetaModel& model, std::string_view path) {
  const auto& mine = static_cast<const MetaModel&>(model);
  const Times times = mine.times();
  std::string text = fmt::format(
      "{{\"format\": \"{}\", \"version\": {},\n \"ti\": {}, \"tf\": {}, \"ts\": {},\n \"blocks\": [",
      format_name, newest_version, times.ti, times.tf, times.ts);
  std::string_view separator = "\n  ";
  for (const auto& block : mine.blocks()) {
    if (block->id() == top_id) continue;
    text.append(separator).append(block_text(*block));
    separator = ",\n  ";
  }
  text += "],\n \"links\": [";
  separator = "\n  ";
  for (const Link& link : mine.wires().links) {
    text.append(separator).append(link_text(link));
    separator = ",\n  ";
  }
  text += "]}\n";

  std::string why;
  if (!std::isfinite(times.ti) || !std::isfinite(times.tf) || !std::isfinite(times.ts)) {
    why = "ti, tf and ts must be finite numbers";
  } else if (const std::filesystem::path file(path);
             write_files(file.has_parent_path() ? file.parent_path() : ".",
                         {{file.filename().string(), text}}, why)) {
    return true;
  }
  mirn3::log::write(mirn3::log::warning, fmt::format("{}: {}", path, why));
  return false;
}

}  // namespace plexo::json
