// The variant value that messages and the configuration store carry.
#include "kvalo/host.h"

#include <cstring>
#include <utility>

namespace mirn3 {

namespace {

char* copy_text(const char* text) {
  const size_t bytes = std::strlen(text) + 1;
  return static_cast<char*>(std::memcpy(new char[bytes], text, bytes));
}

constexpr auto text_tag = static_cast<uint8_t>(tag_t::text);

}  // namespace

var_t::var_t(const var_t& other) : value(other.value), tag(other.tag) {
  if (tag == text_tag && value.text != nullptr) value.text = copy_text(other.value.text);
}

var_t::var_t(var_t&& other) noexcept : value(other.value), tag(std::exchange(other.tag, uint8_t{0})) {
  other.value.uint64 = 0;
}

var_t& var_t::operator=(var_t other) noexcept {
  std::swap(value, other.value);
  std::swap(tag, other.tag);
  return *this;
}

var_t::~var_t() {
  if (tag == text_tag) delete[] value.text;
}

#define KVALO_VAR_OF(type, member)                  \
  var_t var_t::of(type v) {                         \
    var_t made;                                     \
    made.value.member = v;                          \
    made.tag = static_cast<uint8_t>(tag_t::member); \
    return made;                                    \
  }
KVALO_VAR_OF(bool, boolean)
KVALO_VAR_OF(int32_t, int32)
KVALO_VAR_OF(uint32_t, uint32)
KVALO_VAR_OF(int64_t, int64)
KVALO_VAR_OF(uint64_t, uint64)
KVALO_VAR_OF(double, float64)
#undef KVALO_VAR_OF

var_t var_t::of(const char* v) {
  var_t made;
  if (v == nullptr) return made;
  made.value.text = copy_text(v);
  made.tag = text_tag;
  return made;
}

}  // namespace mirn3
