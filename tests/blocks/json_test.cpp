// Model files: what is read, what is refused and with which result, and that saving gives the same again.
#include <gmock/gmock.h>

#include <filesystem>

#include "blocks/model.h"
#include "runtime/home.h"

namespace {

using namespace blocks_test;
using plexo::json::Result;

constexpr const char* head = R"({"format": "kvalo-model", "version": 1, )";

class JsonTest : public Home {
 protected:
  int load(const std::string& content, Model& model) {
    return plexo::json::load(model.meta.get(), make("model.json", content).string());
  }
  int load(const std::string& content) {
    Model model;
    const uint64_t before = model.meta->count();
    const int result = load(content, model);
    if (result != 0) {
      EXPECT_EQ(model.meta->count(), before);
      EXPECT_EQ(model.meta->links(), 0u);
      EXPECT_EQ(model.meta->times().tf, 10.0);
    }
    return result;
  }
  std::string with(const std::string& blocks, const std::string& links = "") {
    return head + ("\"tf\": 3, \"blocks\": [" + blocks + "], \"links\": [" + links + "]}");
  }
};

TEST_F(JsonTest, EachFaultGivesItsResult) {
  const std::pair<std::string, int> cases[] = {
      {with(R"({"id": 2, "kind": "gain"})"), Result::loaded},
      {head + std::string(R"("_editor": {"any": [1]}, "blocks": [{"id": 2, "kind": "clock", "_x": null}]})"),
       Result::loaded},
      {with(R"({"id": 9, "kind": "gain", "parent": 12}, {"id": 12, "kind": "subsys"})"), Result::loaded},
      {"", Result::no_json},
      {"{", Result::no_json},
      {with(R"({"id": 2, "kind": "gain", "name": ")"
            "\xff"
            R"("})"),
       Result::no_json},
      {with(R"({"id": 2, "kind": "gain", "expression": 1e999})"), Result::no_json},
      {with(R"({"id": 2, "kind": "gain", "expression": NaN})"), Result::no_json},
      {head + ("\"_deep\": " + std::string(32, '[') + std::string(32, ']') + "}"), Result::no_json},
      {head + ("\"_deep\": " + std::string(1000000, '[')), Result::no_json},
      {"[]", Result::no_model},
      {"{}", Result::no_model},
      {R"({"format": "other", "version": 1})", Result::no_model},
      {R"({"format": "kvalo-model"})", Result::no_model},
      {R"({"format": "kvalo-model", "version": 1.5})", Result::no_model},
      {R"({"format": "kvalo-model", "version": 2})", Result::no_model},
      {R"({"format": "kvalo-model", "version": "1"})", Result::no_model},
      {with(R"({"id": 2, "kind": "amplifier"})"), Result::no_kind},
      {with(R"({"id": 2})"), Result::bad_content},
      {with(R"({"id": 2, "kind": 3})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "gain", "colour": 1})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "gain", "expression": [1]})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "gain", "expression": true})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "gain", "x": "1"})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "math"})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "math", "operator": 1})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "lut1d", "bp1": [[1], 2], "out": [1]})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "series", "obj": {"x": [0]}})"), Result::bad_content},
      {with(R"({"id": 2, "kind": "series", "obj": {"x": [0], "y": ["2 * 3"]}})"), Result::bad_content},
      {with(R"(7)"), Result::bad_content},
      {with("", R"({"from": 2})"), Result::bad_content},
      {head + std::string(R"("blocks": {}})"), Result::bad_content},
      {head + std::string(R"("ti": "0"})"), Result::bad_content},
      {head + std::string(R"("extra": 0})"), Result::bad_content},
      {with(R"({"kind": "gain"})"), Result::bad_ids},
      {with(R"({"id": 1, "kind": "gain"})"), Result::bad_ids},
      {with(R"({"id": 2.5, "kind": "gain"})"), Result::bad_ids},
      {with(R"({"id": 1e300, "kind": "gain"})"), Result::bad_ids},
      {with(R"({"id": 2, "kind": "gain"}, {"id": 2, "kind": "gain"})"), Result::bad_ids},
      {with(R"({"id": 2, "kind": "gain", "parent": 7})"), Result::bad_ids},
      {with(R"({"id": 2, "kind": "gain"}, {"id": 3, "kind": "gain", "parent": 2})"), Result::bad_ids},
      {with(R"({"id": 2, "kind": "subsys", "parent": 2})"), Result::bad_ids},
      {with(R"({"id": 2, "kind": "subsys", "parent": 3}, {"id": 3, "kind": "subsys", "parent": 2})"),
       Result::bad_ids},
      {with(R"({"id": 2, "kind": "gain"})", R"({"from": 2, "to": 3})"), Result::bad_ids},
      {with(R"({"id": 2, "kind": "subsys", "path": "/nowhere"})"), Result::unreadable},
  };
  for (const auto& [content, result] : cases) EXPECT_EQ(load(content), result) << content.substr(0, 200);
  Model model;
  EXPECT_EQ(plexo::json::load(model.meta.get(), (folder / "none.json").string()), Result::unreadable);
  EXPECT_EQ(plexo::json::load(model.meta.get(), folder.string()), Result::unreadable);
}

TEST_F(JsonTest, ReasonsNameLineAndColumn) {
  load("{\"format\": \"kvalo-model\",\n \"version\": 1,\n \"blocks\": [{\"id\": 2, \"kind\": \"amp\"}]}");
  EXPECT_THAT(log_lines("line 3, column 31: unknown kind \"amp\""), testing::SizeIs(1));
  load("{\"format\": \n,}");
  EXPECT_THAT(log_lines("line 2, column 1"), testing::SizeIs(1));
}

TEST_F(JsonTest, AFileCutAnywhereOrWithAWrongByteNeverLoadsHalf) {
  const std::filesystem::path examples = std::filesystem::path(KVALO_ROOT) / "examples/models";
  size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(examples)) {
    std::string whole = content(entry.path());
    while (whole.ends_with('\n')) whole.pop_back();
    ++files;
    for (size_t length = 0; length < whole.size(); length += 1 + length % 7)
      EXPECT_NE(load(whole.substr(0, length)), 0);
    for (size_t i = 0; i < whole.size(); i += 5) {
      std::string damaged = whole;
      damaged[i] = static_cast<char>(damaged[i] ^ 0x41);
      load(damaged);  // a failure leaves the model as it was
    }
  }
  EXPECT_GE(files, 6u);
}

TEST_F(JsonTest, SavedModelsLoadAsTheyWere) {
  Model model;
  model.meta->set_time(-1, 2.5, 0.1);
  const uint64_t system = model.add("subsys", {}, 1,
                                    "Gr\"\xc3\xb6\xc3\x9f"
                                    "e\n");
  const uint64_t in = model.add("inport", {}, system);
  const uint64_t out = model.add("outport", {}, system);
  const uint64_t table =
      model.add("lut2d", {{"bp1", list({0, 1})}, {"bp2", list({5})}, {"out", rows({{1}, {0.1}})}}, system);
  model.link(in, table), model.link(in, table, 2), model.link(table, out);
  const uint64_t source = model.add("series", {{"obj", series({1e-300, 2e-300}, {NaN, -inf})}});
  const uint64_t limit = model.add("saturation", {{"max", inf}, {"min", text("-float('inf')")}});
  model.link(source, limit, 1, 1, "raw"), model.link(limit, system);
  model.show(system, "y");
  model.meta->block(limit)->place()[0] = 12.5f;
  const std::string first = (folder / "first.json").string(), second = (folder / "second.json").string();
  ASSERT_TRUE(plexo::json::save(*model.meta, first));
  Model loaded;
  ASSERT_EQ(plexo::json::load(loaded.meta.get(), first), 0);
  ASSERT_TRUE(plexo::json::save(*loaded.meta, second));
  EXPECT_EQ(content(first), content(second));
  ASSERT_EQ(model.run(), 0);
  ASSERT_EQ(loaded.run(), 0);
  EXPECT_EQ(loaded.shown("y"), model.shown("y"));
  // A second time below a system: new ids follow on, times stay.
  const uint64_t holder = loaded.add("subsys");
  ASSERT_EQ(plexo::json::load(loaded.meta.get(), first, holder), 0);
  EXPECT_EQ(loaded.meta->number(holder + 1, "parent"), holder);
  EXPECT_EQ(loaded.meta->count(), 2 * model.meta->count());
  EXPECT_EQ(plexo::json::load(loaded.meta.get(), first, table), Result::bad_ids);
  EXPECT_FALSE(plexo::json::save(*model.meta, (folder / "no/folder/here.json").string()));
}

TEST_F(JsonTest, AFileThatHoldsItselfIsRefused) {
  const std::string path = (folder / "model.json").string();
  EXPECT_EQ(load(with(R"({"id": 2, "kind": "subsys", "path": ")" + path + "\"}")), Result::bad_ids);
  make("inner.json", with(R"({"id": 2, "kind": "const", "name": "c"})"));
  Model model;
  ASSERT_EQ(load(with(R"({"id": 2, "kind": "subsys", "path": ")" + (folder / "inner.json").string() + "\"}"),
                 model),
            0);
  EXPECT_EQ(model.meta->number(3, "parent"), 2);
  EXPECT_EQ(model.meta->times().tf, 3);
}

TEST_F(JsonTest, AMillionBlocks) {
  std::string blocks;
  for (int i = 2; i < 1000002; ++i)
    blocks += std::string(i == 2 ? "" : ",") + "{\"id\":" + std::to_string(i) + ",\"kind\":\"clock\"}";
  Model model;
  ASSERT_EQ(load(with(blocks), model), 0);
  EXPECT_EQ(model.check(), 0);
  EXPECT_EQ(model.meta->zones(), 1000000u);
}

TEST_F(JsonTest, PublishedFilesAreThoseOfTheTable) {
  const std::filesystem::path root = KVALO_ROOT;
  EXPECT_EQ(content(root / "docs/formats/model.schema.json"), plexo::json::schema())
      << "build and run blocks_pages";
  EXPECT_EQ(content(root / "docs/models/catalogue.md"), plexo::catalogue_page())
      << "build and run blocks_pages";
}

}  // namespace
