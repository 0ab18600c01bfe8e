// Fetches the text on the desktop's clipboard.
#include "readers/clipboard_text.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

#include "runtime/exc.h"
#include "runtime/log.h"

namespace mirn2::rd {

namespace {

using mirn3::exc::error_t;

constexpr auto longest_wait = std::chrono::seconds(10);

// What every text goes through: the libraries do the same in three calls.
class Clipboard {
 public:
  virtual ~Clipboard() = default;
  virtual std::string text() = 0;  // throws exc::error_t
};

[[noreturn]] void fail_to_open(std::string_view why) {
  mirn3::log::write(mirn3::log::warning, fmt::format("The clipboard cannot be opened: {:s}", why));
  throw error_t("Could not open clipboard");
}
[[noreturn]] void fail_to_read() { throw error_t("Could not open read clipboard"); }

// A library and its functions; stays open until the process ends.
class Library {
 public:
  explicit Library(std::initializer_list<const char*> names) {
    for (const char* name : names) {
      handle_ = dlopen(name, RTLD_NOW | RTLD_LOCAL);
      if (handle_ != nullptr) return;
    }
  }
  explicit operator bool() const { return handle_ != nullptr; }

  template <typename Function>
  void bind(const char* name, Function*& function) const {
    function = reinterpret_cast<Function*>(dlsym(handle_, name));
    if (function == nullptr) fail_to_open(fmt::format("the library has no {:s}", name));
  }

 private:
  void* handle_ = nullptr;
};

// ---- libclipboard ----

class LibClipboard : public Clipboard {
 public:
  explicit LibClipboard(const Library& library) {
    void* (*open)(void* options) = nullptr;
    library.bind("clipboard_new", open);
    library.bind("clipboard_text", text_);
    library.bind("clipboard_free", close_);
    clipboard_ = open(nullptr);
    if (clipboard_ == nullptr) fail_to_open("libclipboard finds no desktop; is DISPLAY set?");
  }
  ~LibClipboard() override { close_(clipboard_); }

  std::string text() override {
    const std::unique_ptr<char, decltype(&std::free)> text(text_(clipboard_), std::free);
    if (!text) fail_to_read();
    return text.get();
  }

 private:
  char* (*text_)(void* clipboard) = nullptr;
  void (*close_)(void* clipboard) = nullptr;
  void* clipboard_ = nullptr;
};

// ---- GLFW: its functions belong to one main thread, of which it only wants that it is always the same ----

class GlfwClipboard : public Clipboard {
 public:
  explicit GlfwClipboard(const Library& library) {
    int (*init)() = nullptr;
    double (*time)() = nullptr;
    library.bind("glfwInit", init);
    library.bind("glfwTerminate", terminate_);
    library.bind("glfwGetTime", time);
    library.bind("glfwGetError", error_);
    library.bind("glfwGetClipboardString", text_);
    constexpr int not_initialised = 0x00010001;
    error_(nullptr);
    time();
    // A program around us may use it too: then it is not ours to end.
    is_ours_ = error_(nullptr) == not_initialised;
    if (init() == 0) fail_to_open(fmt::format("{:s}; is DISPLAY set?", reason()));
  }
  ~GlfwClipboard() override {
    if (is_ours_) terminate_();
  }

  std::string text() override {
    const char* text = text_(nullptr);
    if (text == nullptr) {
      mirn3::log::write(mirn3::log::warning, fmt::format("The clipboard has no text: {:s}", reason()));
      fail_to_read();
    }
    return text;
  }

 private:
  std::string reason() const {
    const char* text = nullptr;
    error_(&text);
    return text != nullptr ? text : "GLFW gives no reason";
  }

  void (*terminate_)() = nullptr;
  int (*error_)(const char** text) = nullptr;
  const char* (*text_)(void* window) = nullptr;
  bool is_ours_ = true;
};

std::unique_ptr<Clipboard> open_clipboard() {
  if (const Library library({"libclipboard.so", "libclipboard.so.1"}); library) {
    return std::make_unique<LibClipboard>(library);
  }
  if (const Library library({"libglfw.so.3"}); library) return std::make_unique<GlfwClipboard>(library);
  fail_to_open("install the package libglfw3");
}

}  // namespace

std::string read_clipboard_text() {
  // The owner of the text is asked for it, and may be a program that hangs: the libraries would wait for
  // ever. So somebody else waits, and is left behind if need be.
  static std::atomic<bool> is_waiting = false;
  if (is_waiting.exchange(true)) throw error_t("Error while reading data from clipboard");
  std::promise<std::string> promise;
  std::future<std::string> text = promise.get_future();
  std::thread([answer = std::move(promise)]() mutable {
    try {
      std::string got = open_clipboard()->text();
      is_waiting = false;
      answer.set_value(std::move(got));
    } catch (...) {
      is_waiting = false;
      answer.set_exception(std::current_exception());
    }
  }).detach();
  if (text.wait_for(longest_wait) != std::future_status::ready) {
    mirn3::log::write(mirn3::log::warning, "The program that owns the clipboard's text does not answer");
    throw error_t("Error while reading data from clipboard");
  }
  return text.get();
}

}  // namespace mirn2::rd
