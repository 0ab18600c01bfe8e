// libarchive and zlib as tables of functions, opened on first use: importing the module does not wait for
// them, and a machine without them can do everything else.
#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>

namespace mirn3::zip {

#define MIRN3_ARCHIVE_FUNCTIONS(F)      \
  F(archive_clear_error)                \
  F(archive_entry_filetype)             \
  F(archive_entry_hardlink)             \
  F(archive_entry_is_encrypted)         \
  F(archive_entry_pathname)             \
  F(archive_entry_pathname_utf8)        \
  F(archive_entry_size)                 \
  F(archive_entry_size_is_set)          \
  F(archive_error_string)               \
  F(archive_read_data_block)            \
  F(archive_read_free)                  \
  F(archive_read_has_encrypted_entries) \
  F(archive_read_new)                   \
  F(archive_read_next_header)           \
  F(archive_read_open)                  \
  F(archive_read_open_fd)               \
  F(archive_read_support_format_7zip)   \
  F(archive_read_support_format_tar)    \
  F(archive_read_support_format_zip_seekable)

#define MIRN3_ZLIB_FUNCTIONS(F) \
  F(gzbuffer)                   \
  F(gzclose_r)                  \
  F(gzdirect)                   \
  F(gzdopen)                    \
  F(gzerror)                    \
  F(gzread)

struct Library {
#define MIRN3_BIND(name) decltype(&::name) name = nullptr;
  MIRN3_ARCHIVE_FUNCTIONS(MIRN3_BIND)
  MIRN3_ZLIB_FUNCTIONS(MIRN3_BIND)
#undef MIRN3_BIND
};

// Throws exc::error_t that says what to install.
const Library& library();

}  // namespace mirn3::zip
