// Plug-ins written in Python: finding and loading their modules, and the reader that calls them.
#pragma once

#include <Python.h>

#include <filesystem>

#include "objects/ref.h"
#include "readers/plugin_uses.h"
#include "readers/reader.h"

// Call everything in here with the interpreter lock held.
namespace mirn4::pyd {

// The module of the first plug-in in the plug-in folder, in name order, that says that it reads the file;
// null if there is none. A plug-in that fails is skipped, and the log says why.
mirn2::Ref plugin_compatible(const std::filesystem::path& path);

// The module of a named plug-in: one and the same for a file until the file changes. Null if there is none
// or it cannot be loaded; the reason goes to the log and to the script's standard output.
mirn2::Ref plugin_forced(const std::filesystem::path& plugin);

}  // namespace mirn4::pyd

namespace mirn2::rd {

// A file read by functions of a Python module: config_keys, init, list_names, load, terminate.
//
// Takes the interpreter lock itself, so it can be used like any other reader.
class ReaderPluginPYDFile : public Reader {
 public:
  // Both throw mirn3::exc::error_t "Error while loading compatible plugin" when there is no module.
  explicit ReaderPluginPYDFile(const std::filesystem::path& path);
  ReaderPluginPYDFile(std::filesystem::path path, Ref module);
  ~ReaderPluginPYDFile() override;

  void scan() override;
  void load(rto_t& request) override;

 private:
  PluginUses::Key key() const;
  Ref configuration() const;
  void call_init();
  void call_list();

  Ref module_;
  std::unordered_map<std::string, std::string>
      reported_;  // full name to the plug-in's own, where they differ
};

// Calls terminate of the Python plug-ins still in use, before the interpreter ends; later loads fail.
void end_python_plugins() noexcept;

}  // namespace mirn2::rd
