// Calls native plug-ins: settings, names, samples, and the start and end of their use.
#include "readers/plugin_native.h"

#include <cxxabi.h>
#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "kvalo/plugin.h"
#include "readers/name_tree.h"
#include "runtime/config.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/str.h"
#include "runtime/utc.h"

namespace mirn2::rd {

namespace {

namespace fs = std::filesystem;
namespace sys = mirn3::sys;
using mirn3::exc::error_t;

// Bounds on what a plug-in may say; texts are told in plugin.h.
constexpr uint32_t most_settings = 4096;
constexpr size_t longest_message = size_t{1} << 16;
constexpr size_t shortest_message = 3;

constexpr const char* settings_group = "general";

PluginUses& uses() {
  static auto* all = new PluginUses;  // never destroyed: readers may outlive statics
  return *all;
}

// Calls into the plug-in; what a plug-in in C++ lets escape becomes an error that says where.
template <typename Function, typename... Args>
auto call(const sys::Plugin& plugin, const char* name, Args... args) {
  const auto function = plugin.function<Function>(name);
  try {
    return function(args...);
  } catch (const std::exception& error) {
    throw error_t(fmt::format("The plug-in failed in {:s}: {:s}", name, error.what()));
  } catch (const abi::__forced_unwind&) {
    throw;  // the thread is being ended
  } catch (...) {
    throw error_t(fmt::format("The plug-in failed in {:s}", name));
  }
}

std::string text_of(const char* text, size_t longest) { return std::string(text, strnlen(text, longest)); }

// The message that the plug-in has to tell, empty for none.
template <typename Function>
std::string message_of(const sys::Plugin& plugin, const char* name) {
  const char* text = call<Function>(plugin, name);
  if (text == nullptr) return {};
  const std::string message = text_of(text, longest_message);
  return message.size() < shortest_message ? std::string() : mirn3::str::to_utf8(message);
}

std::string setting_text(const std::string& key) {
  const mirn3::var_t value = mirn3::config::get(settings_group, key);
  if (static_cast<mirn3::tag_t>(value.tag) == mirn3::tag_t::text) return value.value.text;
  if (static_cast<mirn3::tag_t>(value.tag) != mirn3::tag_t::none) {
    mirn3::log::write(mirn3::log::warning,
                      fmt::format("The setting '{:s}' is not a text, so the plug-in does not get it; store "
                                  "it with kvalo.set_config('...', '{:s}')",
                                  key, key));
  }
  return {};
}

// A malloc'ed copy of samples. Not charged to the budget: the lock on the plug-in's calls is held, and
// charging may wait for the interpreter.
struct Free {
  void operator()(double* buffer) const noexcept { std::free(buffer); }
};
using Copy = std::unique_ptr<double, Free>;

Copy copy_samples(const double* samples, uint64_t count, std::string_view name) {
  // Small counts lie on pages that are there anyway.
  constexpr uint64_t always_checked = 4096;
  if (samples == nullptr) {
    throw error_t(fmt::format("The plug-in reports {:d} samples of '{:s}' but gives none", count, name));
  }
  const bool absurd = count >= uint64_t{1} << 60;
  if (absurd || (count > always_checked && !sys::is_readable(samples, count * sizeof(double)))) {
    throw error_t(
        fmt::format("The plug-in reports {:d} samples of '{:s}', which are not in memory", count, name));
  }
  Copy copy(static_cast<double*>(std::malloc(count * sizeof(double))));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy.get(), samples, count * sizeof(double));
  return copy;
}

// Now as text, different from every earlier one.
std::string distinct_time() {
  static std::mutex mutex;
  static auto* last = new std::string;
  const std::lock_guard guard(mutex);
  std::string now = mirn3::utc::now_as_str_02();
  while (now == *last) now = mirn3::utc::now_as_str_02();
  *last = now;
  return now;
}

void end_use(sys::Plugin& plugin, const std::string& path, const PluginUses::Use& use) noexcept {
  const auto end = [&](const char* name) {
    try {
      call<void(const char*)>(plugin, name, path.c_str());
    } catch (const std::exception& error) {
      mirn3::log::write(mirn3::log::error,
                        fmt::format("Plug-in '{:s}': {:s}", plugin.path().string(), error.what()));
    }
  };
  if (use.running) end("Stop");
  end("Terminate");
}

}  // namespace

// A stretch of calls into the plug-in that no other thread interrupts. What the plug-in has to tell is shown
// when the calls are over: showing waits for the interpreter.
class ReaderPluginDLL::Talk {
 public:
  explicit Talk(ReaderPluginDLL& reader) : reader_(reader), guard_(reader.plugin_->calls) {
    if (uses().get(reader.key()).readers == 0) {
      throw error_t("The plug-in has been ended, because the program is about to end");
    }
  }
  ~Talk() {
    guard_.unlock();
    try {
      for (const std::string& message : messages_) warn(message);
    } catch (const std::exception&) {  // no memory for a message
    }
  }
  Talk(const Talk&) = delete;
  Talk& operator=(const Talk&) = delete;

  template <typename Function, typename... Args>
  auto ask(const char* name, Args... args) {
    return call<Function>(*reader_.plugin_, name, args...);
  }

  // The same for a call that returns a code. Throws error_t unless it is 0.
  template <typename Function, typename... Args>
  void require(const char* name, Args... args) {
    const uint8_t code = ask<Function>(name, args...);
    if (code == 0) {
      std::string message = message_of<decltype(GetInfoMessage)>(*reader_.plugin_, "GetInfoMessage");
      if (!message.empty()) messages_.push_back(std::move(message));
      return;
    }
    const std::string message = message_of<decltype(GetErrorMessage)>(*reader_.plugin_, "GetErrorMessage");
    throw error_t(message.empty() ? fmt::format("Error {:d} during {:s} plugin call", code, name) : message);
  }

 private:
  ReaderPluginDLL& reader_;
  std::unique_lock<std::mutex> guard_;
  std::vector<std::string> messages_;
};

ReaderPluginDLL::ReaderPluginDLL(fs::path path, std::shared_ptr<sys::Plugin> plugin, const char* failure)
    : Reader(std::move(path)), plugin_(std::move(plugin)), path_text_(path_.string()) {
  if (!plugin_) throw error_t(failure);
  uses().add(key());
}

ReaderPluginDLL::ReaderPluginDLL(fs::path path, const fs::path& plugin)
    : ReaderPluginDLL(std::move(path), sys::plugin_forced(plugin), "Error while loading forced plugin") {}

ReaderPluginDLL::~ReaderPluginDLL() {
  const std::lock_guard guard(plugin_->calls);
  PluginUses::Use last;
  if (uses().remove(key(), last) == PluginUses::Left::none) end_use(*plugin_, path_text_, last);
}

PluginUses::Key ReaderPluginDLL::key() const { return {plugin_.get(), path_text_}; }

void ReaderPluginDLL::scan() {
  Talk talk(*this);
  initialise(talk);
  list_names(talk);
}

void ReaderPluginDLL::initialise(Talk& talk) {
  const auto count = talk.ask<decltype(GetConfigCount)>("GetConfigCount");
  if (count > most_settings) {
    throw error_t(fmt::format("The plug-in asks for {:d} settings; {:d} are possible", count, most_settings));
  }
  std::vector<std::string> values;
  for (uint32_t i = 0; i < count; ++i) {
    const char* key = talk.ask<decltype(GetConfigKey)>("GetConfigKey", i);
    if (key == nullptr) throw error_t(fmt::format("The plug-in gives no key for its setting {:d}", i));
    values.push_back(setting_text(mirn3::str::to_utf8(text_of(key, NameTree::longest_name))));
  }
  if (uses().get(key()).initialised) return;
  std::vector<const char*> texts;
  for (const std::string& value : values) texts.push_back(value.c_str());
  texts.push_back(nullptr);  // no settings: still an address
  talk.require<decltype(Initialize)>("Initialize", path_text_.c_str(), texts.data());
  uses().set(key(), &PluginUses::Use::initialised, true);
}

void ReaderPluginDLL::list_names(Talk& talk) {
  const auto count = talk.ask<decltype(GetParameterCount)>("GetParameterCount", path_text_.c_str());
  if (count > NameTree::most_names) {
    throw error_t(
        fmt::format("The plug-in reports {:d} parameters; {:d} are possible", count, NameTree::most_names));
  }
  NameTree names;
  std::unordered_map<std::string, size_t> index;
  std::vector<std::pair<std::string, size_t>> by_full_name;
  for (uint32_t j = 0; j < count; ++j) {
    const char* text = talk.ask<decltype(GetParameterName)>("GetParameterName", path_text_.c_str(), j);
    if (text == nullptr) throw error_t(fmt::format("The plug-in gives no name for parameter {:d}", j));
    const std::string name = mirn3::str::to_utf8(text_of(text, NameTree::longest_name + 1));
    std::string full_name = names.insert(name);
    if (full_name != name) by_full_name.emplace_back(std::move(full_name), j);
    if (!index.insert_or_assign(name, j).second) {
      mirn3::log::write(mirn3::log::warning,
                        fmt::format("The plug-in names two parameters '{:s}'; the later one is used", name));
    }
  }
  for (auto& [full_name, j] : by_full_name) index.try_emplace(std::move(full_name), j);
  root_.children = names.take();
  index_ = std::move(index);
}

void ReaderPluginDLL::load(rto_t& request) {
  const auto found = index_.find(std::string(request.name));
  if (found == index_.end()) {
    if (request.tolerate_unknown) return;
    throw error_t(fmt::format("'{:s}' is not a valid parameter name for this file", request.name));
  }
  uint64_t count = 0;
  Copy x, y;
  {
    Talk talk(*this);
    double* times = nullptr;
    double* values = nullptr;
    talk.require<decltype(Load)>("Load", path_text_.c_str(), static_cast<uint32_t>(found->second), &count,
                                 &times, &values);
    if (count != 0) {
      x = copy_samples(times, count, request.name);
      y = copy_samples(values, count, request.name);
    }
  }
  if (count == 0) return;
  request.x.assign_move(count, x.release());
  request.y.assign_move(count, y.release());
}

void ReaderPluginDLL::run(const char* function, bool running) {
  Talk talk(*this);
  talk.require<decltype(Start)>(function, path_text_.c_str());
  uses().set(key(), &PluginUses::Use::running, running);
}

ReaderPluginDLLFile::ReaderPluginDLLFile(const fs::path& path)
    : ReaderPluginDLLFile(path, sys::plugin_compatible(path)) {}

ReaderPluginDLLFile::ReaderPluginDLLFile(fs::path path, std::shared_ptr<sys::Plugin> plugin)
    : ReaderPluginDLL(std::move(path), std::move(plugin), "Error while loading compatible plugin") {}

ReaderPluginDLLRealTime::ReaderPluginDLLRealTime(const fs::path& plugin)
    : ReaderPluginDLL(distinct_time(), plugin) {}

void end_native_plugins() noexcept {
  for (const auto& [key, use] : uses().take_all()) {
    auto& plugin = *static_cast<sys::Plugin*>(const_cast<void*>(key.first));
    const std::lock_guard guard(plugin.calls);
    end_use(plugin, key.second, use);
  }
}

}  // namespace mirn2::rd
