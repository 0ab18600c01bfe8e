// Extraction: what may come out of an archive, what never does, and the cache of extracted archives.
// Archives are written with libarchive itself, so that any entry can be made.
#include "runtime/zip.h"

#include <archive.h>
#include <archive_entry.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <clocale>
#include <fstream>

#include "home.h"
#include "runtime/exc.h"
#include "runtime/sys.h"
#include "runtime/zip_cache.h"
#include "runtime/zip_entry_name.h"

namespace {

namespace fs = std::filesystem;
namespace zip = mirn3::zip;
using testing::HasSubstr;

struct Made {
  std::string name;
  std::string content;
  unsigned type = AE_IFREG;
  std::string link = "";
};

// The functions that write archives, out of the library that the runtime opens itself.
template <typename Function>
Function* writer(const char* name) {
  static void* const handle = dlopen("libarchive.so.13", RTLD_NOW);
  return reinterpret_cast<Function*>(dlsym(handle, name));
}
#define WRITER(name) writer<decltype(::name)>(#name)

struct Format {
  const char* extension;
  zip::Extract extract;
  int (*layout)(archive*);
  bool gzip;
};
const Format formats[] = {
    {"zip", zip::extract_zip, WRITER(archive_write_set_format_zip), false},
    {"7z", zip::extract_7zip, WRITER(archive_write_set_format_7zip), false},
    {"tar.gz", zip::extract_tgz, WRITER(archive_write_set_format_pax_restricted), true},
};
const Format& zip_format = formats[0];
const Format& tgz_format = formats[2];

class Zip : public Home {
 protected:
  fs::path pack(const Format& format, const std::vector<Made>& entries, const std::string& stem = "a") const {
    const fs::path path = folder / (stem + "." + format.extension);
    std::setlocale(LC_CTYPE, "C.UTF-8");  // for the writer; readers must do without
    archive* out = WRITER(archive_write_new)();
    format.layout(out);
    if (format.gzip) WRITER(archive_write_add_filter_gzip)(out);
    EXPECT_EQ(WRITER(archive_write_open_filename)(out, path.c_str()), ARCHIVE_OK);
    for (const Made& made : entries) {
      archive_entry* entry = WRITER(archive_entry_new)();
      WRITER(archive_entry_set_pathname)(entry, made.name.c_str());
      WRITER(archive_entry_set_filetype)(entry, made.type);
      WRITER(archive_entry_set_perm)(entry, 0644);
      WRITER(archive_entry_set_size)(entry, static_cast<la_int64_t>(made.content.size()));
      if (made.type == AE_IFLNK) WRITER(archive_entry_set_symlink)(entry, made.link.c_str());
      if (made.type == AE_IFREG && !made.link.empty()) {
        WRITER(archive_entry_set_hardlink)(entry, made.link.c_str());
      }
      WRITER(archive_write_header)(out, entry);
      WRITER(archive_write_data)(out, made.content.data(), made.content.size());
      WRITER(archive_entry_free)(entry);
    }
    WRITER(archive_write_free)(out);
    std::setlocale(LC_CTYPE, "C");
    return path;
  }

  std::map<std::string, std::string> extract(const Format& format, const fs::path& path,
                                             const zip::Limits& limits = {}) const {
    const fs::path target = folder / "out";
    fs::remove_all(target);
    fs::create_directory(target);
    std::map<std::string, std::string> files;
    for (const zip::Entry& entry : format.extract(path, target, limits)) {
      files[entry.name] = content(target / entry.name);
      EXPECT_EQ(files[entry.name].size(), entry.size);
    }
    return files;
  }

  std::string failure(const Format& format, const fs::path& path, const zip::Limits& limits = {}) const {
    return message_of<mirn3::exc::error_t>([&] { extract(format, path, limits); });
  }

  fs::path cache() const { return folder / "cache"; }
  size_t cached() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(cache()), fs::directory_iterator()));
  }
};

TEST(EntryName, StaysInTheFolderOrIsRefused) {
  const std::pair<std::string, std::string> good[] = {{"a.csv", "a.csv"},
                                                      {"./a//b/", "a/b"},
                                                      {"a\\b.csv", "a/b.csv"},
                                                      {"...", "..."},
                                                      {"./", ""},
                                                      {"gr\u00F6\u00DFe", "gr\u00F6\u00DFe"},
                                                      {"a\xF6", "a%F6"},
                                                      {"a\nb", "a%0Ab"},
                                                      {"\xED\xA0\x80", "%ED%A0%80"},
                                                      {"\xC0\xAE\xC0\xAE/x", "%C0%AE%C0%AE/x"},
                                                      {"ab:c", "ab:c"}};
  for (const auto& [raw, name] : good) EXPECT_EQ(zip::entry_name(raw), name) << raw;
  for (const std::string& raw :
       {std::string(256, 'n'), std::string(3000, '/'), std::string("C:x"), std::string("c:\\x")}) {
    EXPECT_THROW(zip::entry_name(raw), mirn3::exc::error_t) << raw;
  }
  for (const char* raw : {"", "/etc/x", "..", "../x", "a/../../x", "a\\..\\x", "\\x"}) {
    EXPECT_THROW(zip::entry_name(raw), mirn3::exc::error_t) << raw;
  }
}

TEST_F(Zip, EveryFormatGivesBackItsFilesWithinLimits) {
  const std::string big(300'000, '\0');
  const std::map<std::string, std::string> files = {{"b.csv", "1,2"}, {"d/a.csv", big}, {"gr\u00F6.txt", ""}};
  for (const Format& format : formats) {
    const auto path =
        pack(format, {{"d/", "", AE_IFDIR}, {"b.csv", "1,2"}, {"d/a.csv", big}, {"gr\u00F6.txt", ""}});
    EXPECT_TRUE(extract(format, path, {.bytes = 300'003}) == files) << format.extension;
    EXPECT_THAT(failure(format, path, {.bytes = 300'002}), HasSubstr("unpacks to more than"));
    EXPECT_THAT(failure(format, path, {.entries = 1}), HasSubstr("more than 1 entries"));
  }
}

TEST_F(Zip, NothingLeavesTheFolder) {
  const std::string absolute = (folder / "absolute-evil.csv").string();
  for (const std::string name : {"../evil.csv", "d/../../evil.csv", absolute.c_str(), "..\\evil.csv"}) {
    for (const Format& format : {zip_format, tgz_format}) {
      EXPECT_THAT(failure(format, pack(format, {{"a.csv", "1"}, {name, "evil"}})), HasSubstr("refused"));
    }
  }
  EXPECT_FALSE(fs::exists(folder / "evil.csv"));
  EXPECT_FALSE(fs::exists(absolute));
}

TEST_F(Zip, LinksAndDevicesAreLeftOut) {
  const auto files = extract(tgz_format, pack(tgz_format, {{"l", "", AE_IFLNK, "/etc"},
                                                           {"l/passwd", "mine"},
                                                           {"h", "", AE_IFREG, "/etc/passwd"},
                                                           {"p", "", AE_IFIFO},
                                                           {"c", "", AE_IFCHR}}));
  EXPECT_THAT(files, testing::ElementsAre(testing::Pair("l/passwd", "mine")));
  EXPECT_EQ(log_lines("is a link or a device").size(), 4u);
}

TEST_F(Zip, TheLastOfEqualNamesStays) {
  const auto path = pack(tgz_format, {{"a", "first one"}, {"./a", "last"}});
  EXPECT_THAT(extract(tgz_format, path), testing::ElementsAre(testing::Pair("a", "last")));
  for (const std::vector<Made>& both :
       {std::vector<Made>{{"a", "file"}, {"a/b", "below"}}, {{"a/b", "below"}, {"a", "file"}}}) {
    EXPECT_THAT(failure(tgz_format, pack(tgz_format, both)), HasSubstr("a file and a folder"));
  }
}

// Whatever byte is wrong: either an error, or the very content.
TEST_F(Zip, DamageIsFound) {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += std::to_string(i * 7919 % 10007) + (i % 5 == 0 ? "\n" : ",");
  for (const Format& format : formats) {
    const auto path = pack(format, {{"a.csv", text}});
    const std::string whole = content(path);
    for (size_t cut : {size_t{0}, size_t{10}, whole.size() / 2, whole.size() - 1}) {
      make(path.filename(), whole.substr(0, cut));
      EXPECT_THAT(failure(format, path), HasSubstr("is damaged or no")) << cut;
    }
    for (size_t at = 0; at < whole.size(); at += 53) {
      std::string wrong = whole;
      wrong[at] = static_cast<char>(wrong[at] ^ 0x10);
      make(path.filename(), wrong);
      try {
        for (const auto& [name, found] : extract(format, path)) EXPECT_EQ(found == text, true) << at;
      } catch (const mirn3::exc::error_t&) {
      }
    }
  }
}

TEST_F(Zip, UnpackedOnceAndFoundByContent) {
  const auto path = folder / "elsewhere.zip";
  const auto extracted = [&] { return zip::extract_to_cache(path, zip::extract_zip); };
  const auto original = pack(zip_format, {{"a.csv", "1,2"}});
  const auto first = zip::extract_to_cache(original, zip::extract_zip);
  ASSERT_EQ(first.files.size(), 1u);
  const auto made = mirn3::sys::file_stamp(first.files[0]);
  fs::rename(original, path);
  EXPECT_EQ(extracted().files, first.files);
  EXPECT_EQ(mirn3::sys::file_stamp(first.files[0]), made);

  // In place, same size, same time.
  const auto time = fs::last_write_time(path);
  fs::copy_file(pack(zip_format, {{"a.csv", "3,4"}}), path, fs::copy_options::overwrite_existing);
  fs::last_write_time(path, time);
  const auto changed = extracted();
  EXPECT_EQ(content(changed.files.at(0)), "3,4");
  EXPECT_EQ(content(first.files[0]), "1,2");

  // A file of the cache that is cut or gone is extracted anew.
  std::ofstream(changed.files[0]) << "3";
  EXPECT_EQ(content(extracted().files.at(0)), "3,4");
  fs::remove_all(changed.folder);
  EXPECT_EQ(content(extracted().files.at(0)), "3,4");
}

TEST_F(Zip, ProcessesAtOnceAndKillsLeaveWholeFolders) {
  const auto path = pack(tgz_format, {{"a.csv", std::string(5'000'000, '7')}});
  const auto is_whole = [&] {
    const auto found = zip::extract_to_cache(path, zip::extract_tgz);
    return found.files.size() == 1 && content(found.files[0]) == std::string(5'000'000, '7');
  };
  for (int round = 0; round < 5; ++round) {
    fs::remove_all(cache());
    run_processes(4, [&](size_t) { return is_whole(); });
    EXPECT_EQ(cached(), 1u);
  }
  for (int delay = 0; delay < 10; ++delay) {
    fs::remove_all(cache() / zip::extract_to_cache(path, zip::extract_tgz).folder.parent_path());
    const pid_t other = start_process(is_whole);
    ::usleep(static_cast<useconds_t>(delay * 2000));
    ::kill(other, SIGKILL);
    wait_for(other);
    EXPECT_TRUE(is_whole());
  }
}

TEST_F(Zip, LeftoversAndStaleFoldersGo) {
  const auto other = zip::extract_to_cache(pack(zip_format, {{"a", "1"}}, "other"), zip::extract_zip);
  const auto stale = zip::extract_to_cache(pack(zip_format, {{"a", "2"}}, "stale"), zip::extract_zip);
  fs::create_directories(cache() / ".tmp-killed" / "files");
  const std::tuple<fs::path, int, bool> folders[] = {{".tmp-killed", 5, false},
                                                     {".tmp-young", 0, true},
                                                     {"not ours", 0, true},
                                                     {other.folder.parent_path(), 60 * 24 * 29, true},
                                                     {stale.folder.parent_path(), 60 * 24 * 31, false}};
  for (const auto& [name, age, stays] : folders) {
    fs::create_directories(cache() / name);
    fs::last_write_time(cache() / name, fs::file_time_type::clock::now() - std::chrono::minutes(age));
  }
  zip::extract_to_cache(pack(zip_format, {{"a", "3"}}), zip::extract_zip);
  for (const auto& [name, age, stays] : folders) EXPECT_EQ(fs::exists(cache() / name), stays) << name;
  EXPECT_TRUE(fs::exists(other.files[0]));
}

}  // namespace
