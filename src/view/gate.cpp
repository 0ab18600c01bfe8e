// Takes addresses apart and compares headers.
#include "view/gate.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <system_error>

namespace kvalo_view {

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

bool is_name(std::string_view name) {
  const auto fine = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
  };
  return !name.empty() && name.size() <= 128 && name[0] != '.' && std::all_of(name.begin(), name.end(), fine);
}

template <typename T>
bool parse(std::string_view text, T& value) {
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
  return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

// t0=A&t1=B, either, none. False for anything else.
bool parse_times(std::string_view query, Range& times) {
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(query.size(), part.size() + 1));
    const bool is_start = part.starts_with("t0=");
    if (!is_start && !part.starts_with("t1=")) return false;
    if (!parse(part.substr(3), is_start ? times.lo : times.hi)) return false;
  }
  return times.lo <= times.hi;
}

std::optional<Target> download(std::string_view name, std::string_view query) {
  Target target{Target::Type::download, {}, 0, {}, {-inf, inf}};
  const size_t dot = name.find('.');
  if (dot == std::string_view::npos || !parse(name.substr(0, dot), target.chart)) return {};
  target.format = name.substr(dot + 1);
  if (target.format != "csv" && target.format != "png" && target.format != "svg") return {};
  if (!parse_times(query, target.times)) return {};
  return target;
}

}  // namespace

std::string new_token() {
  unsigned char bytes[16];
  size_t got = 0;
  while (got < sizeof bytes) {
    const ssize_t n = ::getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "no random numbers");
    if (n > 0) got += static_cast<size_t>(n);
  }
  std::string text;
  for (const unsigned char byte : bytes) text += fmt::format("{:02x}", byte);
  return text;
}

bool same_token(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  volatile unsigned char differences = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    differences = static_cast<unsigned char>(
        differences | (static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i])));
  }
  return differences == 0;
}

std::string Gate::address() const { return fmt::format("http://127.0.0.1:{}/k/{}/", port_, token_); }

std::optional<Target> Gate::target(std::string_view address) const {
  if (!address.starts_with("/k/")) return {};
  address.remove_prefix(3);
  const std::string_view token = address.substr(0, address.find('/'));
  if (!same_token(token, token_) || token.size() == address.size()) return {};
  address.remove_prefix(token.size() + 1);
  const size_t mark = std::min(address.find('?'), address.size());
  const std::string_view path = address.substr(0, mark);
  const std::string_view query = address.substr(std::min(mark + 1, address.size()));
  if (path.empty()) return Target{Target::Type::page, "index.html", 0, {}, {-inf, inf}};
  if (path == "s") return Target{Target::Type::conversation, {}, 0, {}, {-inf, inf}};
  if (path.starts_with("a/") && is_name(path.substr(2))) {
    return Target{Target::Type::asset, std::string(path.substr(2)), 0, {}, {-inf, inf}};
  }
  if (path.starts_with("chart/")) return download(path.substr(6), query);
  return {};
}

bool Gate::is_own_host(std::string_view host) const {
  return host == fmt::format("127.0.0.1:{}", port_) || host == fmt::format("localhost:{}", port_);
}

bool Gate::is_own_origin(std::string_view origin) const {
  return origin.starts_with("http://") && is_own_host(origin.substr(7));
}

std::string Gate::content_policy() const {
  return fmt::format(
      "default-src 'self'; connect-src 'self' ws://127.0.0.1:{0} ws://localhost:{0}; img-src 'self' data: "
      "blob:; "
      "base-uri 'none'; form-action 'none'; object-src 'none'",
      port_);
}

}  // namespace kvalo_view
