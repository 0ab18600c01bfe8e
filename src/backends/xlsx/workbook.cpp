// Reads what a workbook says about itself: sheets, date system, number formats.
#include "backends/xlsx/workbook.h"

#include <charconv>
#include <string_view>

#include "backends/xlsx/xml.h"
#include "runtime/exc.h"

namespace mirn2::rd::xlsx {

namespace {

using mirn3::exc::error_t;

constexpr size_t most_sheets = 10'000;
constexpr size_t most_styles = 1'000'000;  // programs stop at 65490
constexpr const char* usual_workbook = "xl/workbook.xml";

uint32_t number_of(std::string_view text) {
  uint32_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

std::string_view last_word(std::string_view type) {
  const size_t slash = type.rfind('/');
  return slash == type.npos ? type : type.substr(slash + 1);
}

std::string_view folder_of(std::string_view part) {
  const size_t slash = part.rfind('/');
  return slash == part.npos ? std::string_view() : part.substr(0, slash);
}

// The name of the part that a relation of `part` leads to.
std::string resolved(std::string_view part, std::string_view target) {
  if (target.starts_with('/')) return std::string(target.substr(1));
  std::string_view folder = folder_of(part);
  while (target.starts_with("../")) {
    target.remove_prefix(3);
    folder = folder_of(folder);
  }
  if (target.starts_with("./")) target.remove_prefix(2);
  return folder.empty() ? std::string(target) : std::string(folder).append("/").append(target);
}

std::string relations_of(std::string_view part) {
  const std::string_view folder = folder_of(part);
  const std::string_view name = folder.empty() ? part : part.substr(folder.size() + 1);
  return std::string(folder).append(folder.empty() ? "_rels/" : "/_rels/").append(name).append(".rels");
}

std::string find_workbook(const Package& package) {
  if (package.contains("_rels/.rels")) {
    const auto source = package.open("_rels/.rels");
    for (const auto& [id, relation] : read_relations(*source)) {
      if (relation.type == "officeDocument") return resolved("", relation.target);
    }
  }
  return usual_workbook;
}

struct ListedSheet {
  std::string name;
  std::string relation;
};

std::vector<ListedSheet> read_sheet_list(ByteSource& source, bool& counts_from_1904) {
  std::vector<ListedSheet> sheets;
  XmlReader xml(source);
  for (Token token; xml.next(token);) {
    if (token.starts("workbookPr")) {
      const std::string_view value = token.attribute("date1904");
      counts_from_1904 = value == "1" || value == "true" || value == "on";
    } else if (token.starts("sheet")) {
      if (sheets.size() == most_sheets) throw error_t("The workbook is damaged: it has too many sheets");
      sheets.push_back({decoded(token.attribute("name")), decoded(token.attribute("id"))});
    }
  }
  return sheets;
}

}  // namespace

std::unordered_map<std::string, Relation> read_relations(ByteSource& source) {
  std::unordered_map<std::string, Relation> relations;
  XmlReader xml(source);
  for (Token token; xml.next(token);) {
    if (!token.starts("Relationship") || token.attribute("TargetMode") == "External") continue;
    if (relations.size() == most_sheets) throw error_t("The workbook is damaged: it has too many parts");
    relations[decoded(token.attribute("Id"))] = {decoded(token.attribute("Target")),
                                                 std::string(last_word(token.attribute("Type")))};
  }
  return relations;
}

std::vector<Shown> read_styles(ByteSource& source) {
  std::unordered_map<uint32_t, Shown> spelled;
  std::vector<Shown> styles;
  bool in_cell_formats = false;
  XmlReader xml(source);
  for (Token token; xml.next(token);) {
    if (token.starts("numFmt")) {
      if (spelled.size() == most_styles) throw error_t("The workbook is damaged: it has too many formats");
      spelled[number_of(token.attribute("numFmtId"))] = shown_by_code(decoded(token.attribute("formatCode")));
    } else if (token.starts("cellXfs")) {
      in_cell_formats = !token.is_empty;
    } else if (token.ends("cellXfs")) {
      in_cell_formats = false;
    } else if (in_cell_formats && token.starts("xf")) {
      if (styles.size() == most_styles) throw error_t("The workbook is damaged: it has too many styles");
      const uint32_t number = number_of(token.attribute("numFmtId"));
      const auto found = spelled.find(number);
      styles.push_back(found != spelled.end() ? found->second : shown_by_number(number));
    }
  }
  return styles;
}

Workbook read_workbook(const Package& package) {
  Workbook book;
  const std::string part = find_workbook(package);
  std::vector<ListedSheet> listed;
  {
    const auto source = package.open(part);
    listed = read_sheet_list(*source, book.counts_from_1904);
  }
  std::unordered_map<std::string, Relation> relations;
  {
    const auto source = package.open(relations_of(part));
    relations = read_relations(*source);
  }
  for (const auto& [id, relation] : relations) {
    const std::string target = resolved(part, relation.target);
    if (relation.type == "sharedStrings") book.strings_part = target;
    if (relation.type == "styles") {
      const auto source = package.open(target);
      book.styles = read_styles(*source);
    }
  }
  for (ListedSheet& sheet : listed) {
    const auto found = relations.find(sheet.relation);
    if (found == relations.end() || found->second.type != "worksheet") continue;
    book.sheets.push_back({std::move(sheet.name), resolved(part, found->second.target)});
  }
  return book;
}

}  // namespace mirn2::rd::xlsx
