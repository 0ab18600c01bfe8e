// Readers of sources that a native plug-in serves: a shared library with the exports of kvalo/plugin.h.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "readers/plugin_uses.h"
#include "readers/reader.h"
#include "runtime/sys_plugin.h"

namespace mirn2::rd {

// The common part. For each path a plug-in gets one Initialize when the first reader scans, any number of
// loads, and one Terminate when the last reader is destroyed.
class ReaderPluginDLL : public Reader {
 public:
  // The named plug-in on this file. Throws mirn3::exc::error_t "Error while loading forced plugin".
  ReaderPluginDLL(std::filesystem::path path, const std::filesystem::path& plugin);
  ~ReaderPluginDLL() override;

  void scan() override;
  void load(rto_t& request) override;

 protected:
  ReaderPluginDLL(std::filesystem::path path, std::shared_ptr<mirn3::sys::Plugin> plugin,
                  const char* failure);

  // Calls Start or Stop and remembers what the source does now.
  void run(const char* function, bool running);

 private:
  class Talk;

  PluginUses::Key key() const;
  void initialise(Talk& talk);
  void list_names(Talk& talk);

  std::shared_ptr<mirn3::sys::Plugin> plugin_;
  std::string path_text_;
};

// A plug-in that says itself that it reads the file.
class ReaderPluginDLLFile : public ReaderPluginDLL {
 public:
  // Throws mirn3::exc::error_t "Error while loading compatible plugin".
  explicit ReaderPluginDLLFile(const std::filesystem::path& path);
  ReaderPluginDLLFile(std::filesystem::path path, std::shared_ptr<mirn3::sys::Plugin> plugin);
  using ReaderPluginDLL::ReaderPluginDLL;  // one that the script names
};

// A plug-in that delivers samples while a source runs. Its path is the time of its creation.
class ReaderPluginDLLRealTime : public ReaderPluginDLL {
 public:
  explicit ReaderPluginDLLRealTime(const std::filesystem::path& plugin);

  LoaderState state() const noexcept override { return LoaderState::live; }
  void start() { run("Start", true); }
  void stop() { run("Stop", false); }
};

// Stops and terminates the plug-ins still in use, before the process ends; loads fail from then on.
void end_native_plugins() noexcept;

}  // namespace mirn2::rd
