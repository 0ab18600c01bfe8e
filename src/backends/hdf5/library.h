// A C++ interface to the HDF5 library: owning handles, errors as exceptions, one user at a time.
#pragma once

#include <hdf5.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace mirn2::rd::hdf5 {

// Held around every call of the library, which is not thread safe. Meanwhile its error printing is off, and
// files cannot make it load filter code from disk; both are restored at the end, because others in the
// process may use the library.
class Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Releases the session while this lives. Allocate sample buffers only under a pause: making room for them
  // may wait for the interpreter lock, whose holder may be waiting for the session.
  class Pause {
   public:
    explicit Pause(Session& session) : session_(session) { session_.leave(); }
    ~Pause() { session_.enter(); }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    Session& session_;
  };

 private:
  void enter();
  void leave();

  std::unique_lock<std::mutex> lock_;
  H5E_auto2_t print_ = nullptr;
  void* print_data_ = nullptr;
  unsigned plugins_ = 0;
};

// Throws mirn3::exc::error_t: what failed, and the library's own reason.
[[noreturn]] void fail(std::string_view what);

// Owns one identifier of the library and closes it with Close.
template <herr_t (*Close)(hid_t)>
class Handle {
 public:
  Handle() = default;
  Handle(hid_t id, std::string_view what) : id_(id) {
    if (id_ < 0) fail(what);
  }
  ~Handle() {
    if (id_ >= 0) Close(id_);
  }
  Handle(Handle&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(id_, other.id_);
    return *this;
  }
  operator hid_t() const noexcept { return id_; }

 private:
  hid_t id_ = -1;
};

using File = Handle<H5Fclose>;
using Object = Handle<H5Oclose>;
using Space = Handle<H5Sclose>;
using Type = Handle<H5Tclose>;
using Properties = Handle<H5Pclose>;

// Opens for reading, without a file lock, so that a file can be read while it is recorded, or on a medium
// without locks.
File open_file(const std::filesystem::path& path);

// Link access that never leaves the file: following an external link fails.
Properties inside_only();

}  // namespace mirn2::rd::hdf5
