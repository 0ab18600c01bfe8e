// Where the program keeps its things. The environment is read at each call, so that tests and hosts
// may change it.
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "runtime/exc.h"
#include "runtime/sys.h"

namespace mirn3::sys {

namespace {

std::filesystem::path variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::filesystem::path home() {
  if (std::filesystem::path folder = variable("HOME"); !folder.empty()) return folder;
  std::vector<char> room(1024);
  for (; room.size() <= (size_t{1} << 20); room.resize(room.size() * 2)) {
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwuid_r(getuid(), &entry, room.data(), room.size(), &found);
    if (error == ERANGE) continue;
    if (found != nullptr && found->pw_dir != nullptr && *found->pw_dir != '\0') return found->pw_dir;
    break;
  }
  throw exc::error_t("There is no home folder to keep files in: set KVALO_HOME to a folder");
}

// A folder below KVALO_HOME, or else the program's folder below one of the XDG base folders. Base
// folders that are not absolute count as not set, as their definition asks.
std::filesystem::path place(const char* below_kvalo_home, const char* xdg, const char* below_home) {
  if (std::filesystem::path all = variable("KVALO_HOME"); !all.empty()) {
    return *below_kvalo_home != '\0' ? all / below_kvalo_home : all;
  }
  std::filesystem::path base = variable(xdg);
  if (!base.is_absolute()) base = home() / below_home;
  return base / "kvalo";
}

}  // namespace

std::filesystem::path config_path() { return place("", "XDG_CONFIG_HOME", ".config"); }
std::filesystem::path cache_path() { return place("cache", "XDG_CACHE_HOME", ".cache"); }
std::filesystem::path state_path() { return place("", "XDG_STATE_HOME", ".local/state"); }
std::filesystem::path plugin_path() { return config_path() / "plugins"; }

}  // namespace mirn3::sys
