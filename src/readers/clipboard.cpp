// Reads clipboard text as delimited text.
#include "readers/clipboard.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "readers/delimited_header.h"
#include "runtime/exc.h"

namespace mirn2::rd {

namespace {

using mirn3::exc::error_t;

[[noreturn]] void fail(const char* doing) {
  throw error_t(std::string("Cannot ") + doing +
                " the clipboard's text: " + std::generic_category().message(errno));
}

// Tools end their lines in their own ways; a byte order mark is no part of the first title.
std::string_view without_mark(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return text;
}

}  // namespace

ReaderClipboard::ReaderClipboard(std::string_view text) : Reader({}) {
  file_ = memfd_create("clipboard", MFD_CLOEXEC);
  if (file_ < 0) fail("keep");
  try {
    for (std::string_view rest = without_mark(text); !rest.empty();) {
      const ssize_t written = ::write(file_, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail("keep");
      rest.remove_prefix(static_cast<size_t>(written));
    }
    const std::string path = "/proc/self/fd/" + std::to_string(file_);
    const char delimiter = probe_delimiter(path);
    if (delimiter == 0) throw error_t("Clipboard data is not compatible with any built-in loaders");
    reader_ = std::make_unique<ReaderDelimited>(path, delimiter);
  } catch (...) {
    ::close(file_);
    throw;
  }
}

ReaderClipboard::~ReaderClipboard() {
  reader_.reset();
  ::close(file_);
}

void ReaderClipboard::scan() {
  reader_->scan();
  root_.children = reader_->variables();
}

void ReaderClipboard::load(rto_t& request) { reader_->load(request); }
void ReaderClipboard::forget() noexcept { reader_->forget(); }

}  // namespace mirn2::rd
