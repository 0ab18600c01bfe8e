// Handles, errors and the lock of the HDF5 library.
#include "backends/hdf5/library.h"

#include <fmt/format.h>

#include "runtime/exc.h"

namespace mirn2::rd::hdf5 {

namespace {

std::mutex& library_mutex() {
  static std::mutex mutex;
  return mutex;
}

// Keeps the innermost description, which says what is wrong rather than who asked.
herr_t first_description(unsigned, const H5E_error2_t* entry, void* data) noexcept {
  if (entry->desc != nullptr && *entry->desc != '\0') *static_cast<const char**>(data) = entry->desc;
  return *static_cast<const char**>(data) != nullptr ? 1 : 0;
}

herr_t refuse_external(const char*, const char*, const char*, const char*, unsigned*, hid_t, void*) noexcept {
  return -1;
}

}  // namespace

Session::Session() : lock_(library_mutex(), std::defer_lock) { enter(); }
Session::~Session() { leave(); }

void Session::enter() {
  lock_.lock();
  H5open();
  H5Eget_auto2(H5E_DEFAULT, &print_, &print_data_);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  H5PLget_loading_state(&plugins_);
  H5PLset_loading_state(0);
}

void Session::leave() {
  H5Eclear2(H5E_DEFAULT);
  H5PLset_loading_state(plugins_);
  H5Eset_auto2(H5E_DEFAULT, print_, print_data_);
  lock_.unlock();
}

void fail(std::string_view what) {
  const char* reason = nullptr;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, first_description, &reason);
  const std::string text = reason != nullptr ? fmt::format("{:s}: {:s}", what, reason) : std::string(what);
  H5Eclear2(H5E_DEFAULT);
  throw mirn3::exc::error_t(text);
}

File open_file(const std::filesystem::path& path) {
  Properties access(H5Pcreate(H5P_FILE_ACCESS), "HDF5: no property list");
#if H5_VERSION_GE(1, 10, 7)
  H5Pset_file_locking(access, false, true);
#endif
  return File(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access),
              fmt::format("'{:s}' cannot be opened as an HDF5 file", path.string()));
}

Properties inside_only() {
  Properties access(H5Pcreate(H5P_LINK_ACCESS), "HDF5: no property list");
  H5Pset_elink_cb(access, refuse_external, nullptr);
  return access;
}

}  // namespace mirn2::rd::hdf5
