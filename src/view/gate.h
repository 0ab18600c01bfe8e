// Who may ask for what: addresses, the token, and the headers that keep other web pages out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "view/columns.h"

namespace kvalo_view {

// What an address asks for.
struct Target {
  enum class Type : uint8_t { page, asset, conversation, download } type;
  std::string name;    // asset
  uint64_t chart = 0;  // download
  std::string format;  // download: csv, png or svg
  Range times;         // download; infinite where the address does not say
};

// 32 hexadecimal digits from the system's entropy. Throws std::system_error.
std::string new_token();

// Compares in a time that does not depend on where the texts differ; their lengths are no secret.
bool same_token(std::string_view a, std::string_view b);

class Gate {
 public:
  Gate(std::string token, uint16_t port) : token_(std::move(token)), port_(port) {}

  std::string address() const;  // of the page
  // Nothing for an address that is not there, or has another token.
  std::optional<Target> target(std::string_view address) const;
  bool is_own_host(std::string_view host) const;
  bool is_own_origin(std::string_view origin) const;
  std::string content_policy() const;

 private:
  std::string token_;
  uint16_t port_;
};

}  // namespace kvalo_view
