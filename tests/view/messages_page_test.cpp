// docs/host-messages.md shows the tables of records.h: rewritten with KVALO_WRITE_DOCS=1, else compared.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "kvalo/records.h"

namespace {

using namespace mirn3::ilc;

std::string type_text(const field_t& field) {
  switch (field.type) {
    case field_type_t::uint32:
      return "unsigned 32-bit";
    case field_type_t::int32:
      return "signed 32-bit";
    case field_type_t::uint64:
      return "unsigned 64-bit";
    case field_type_t::float64:
      return "64-bit float";
    case field_type_t::character:
      return "1 character";
    case field_type_t::chars:
      return std::to_string(field.size) + " bytes of text";
    case field_type_t::string:
      return "`std::string`";
    case field_type_t::samples:
      return "`mirn3::shared_vector<double>`";
    case field_type_t::values:
      return "two `mirn3::var_t`";
  }
  return "";
}

std::string hex(uint32_t id) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", id);
  return text;
}

std::string tables() {
  std::ostringstream out;
  out << "## Every message\n\n| Name | Id | Record | Sent by |\n|---|---|---|---|\n";
  for (const message_t& row : message_table) {
    out << "| `" << row.name << "` | " << hex(row.id) << " | `" << row.record << "` | " << row.sender
        << " |\n";
  }
  out << "\n## Parameters of `dto_misc_t`\n\n| Message | Parameter | Values |\n|---|---|---|\n";
  for (const parameter_t& row : parameter_table) {
    out << "| `" << row.message << "` | `" << row.parameter << "` | " << row.values << " |\n";
  }
  out << "\n## Time formats\n\n| Text | Hash | Meaning |\n|---|---|---|\n";
  for (const time_format_t& row : time_format_table) {
    out << "| `" << row.name << "` | " << hex(row.hash) << " | " << row.meaning << " |\n";
  }
  out << "\n## The records\n\nPlain structures with the natural alignment of their types, created shared and "
         "owned by "
         "both sides.\n";
  std::string record;
  for (const field_t& row : field_table) {
    if (record != row.record) {
      record = row.record;
      out << "\n`" << record << "`\n\n| Offset | Field | Type | Meaning |\n|---|---|---|---|\n";
    }
    out << "| " << row.offset << " | `" << row.name << "` | " << type_text(row) << " | " << row.meaning
        << " |\n";
  }
  return out.str();
}

TEST(HostMessages, ThePageShowsTheTables) {
  const std::string path = KVALO_SOURCE "/docs/host-messages.md";
  std::ifstream file(path);
  std::string page{std::istreambuf_iterator<char>(file), {}};
  const std::string begin = "<!-- tables of include/kvalo/records.h -->\n", end = "<!-- end of tables -->";
  const size_t first = page.find(begin), last = page.find(end);
  ASSERT_TRUE(first != std::string::npos && last != std::string::npos);
  const std::string wanted = page.substr(0, first) + begin + tables() + page.substr(last);
  if (std::getenv("KVALO_WRITE_DOCS") != nullptr) std::ofstream(path) << wanted;
  EXPECT_TRUE(page == wanted) << "run this program with KVALO_WRITE_DOCS=1 to bring " << path
                              << " up to date";
}

TEST(HostMessages, NamesAreUniqueAndRecordsKnown) {
  for (const message_t& row : message_table) {
    EXPECT_EQ(find_message(row.id), &row);
    EXPECT_TRUE(find_field(row.record, "id") || find_field(row.record, "text")) << row.record;
  }
  EXPECT_EQ(find_message(1), nullptr);
  for (const parameter_t& row : parameter_table) EXPECT_NE(find_message(name_hash(row.message)), nullptr);
}

}  // namespace
