// A host for the tests: records the messages it is handed and shows them to Python through ctypes.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kvalo/host.h"

namespace {

std::vector<std::shared_ptr<mirn3::ilc::msgdata_t>> messages;
mirn3::ilc::handler_t handler = [](std::shared_ptr<mirn3::ilc::msgdata_t> message) {
  messages.push_back(std::move(message));
};

template <typename Record>
const Record& record_of(size_t i) {
  return *static_cast<const Record*>(messages.at(i)->data.get());
}

}  // namespace

extern "C" {

KVALO_EXPORT void* recorder_handler() { return &handler; }
KVALO_EXPORT size_t recorder_count() { return messages.size(); }
KVALO_EXPORT void recorder_clear() { messages.clear(); }
KVALO_EXPORT uint32_t recorder_id(size_t i) { return messages.at(i)->id; }
KVALO_EXPORT long recorder_holders(size_t i) { return messages.at(i).use_count(); }

// The raw bytes of the record's text field, zeros included.
KVALO_EXPORT void recorder_error_text(size_t i, char* out) {
  std::memcpy(out, record_of<dto_error_t>(i).text, sizeof(dto_error_t::text));
}
KVALO_EXPORT uint32_t recorder_misc_key(size_t i) { return record_of<dto_misc_t>(i).key; }
KVALO_EXPORT uint8_t recorder_misc_tag(size_t i) { return record_of<dto_misc_t>(i).values[0].tag; }
// The first value of a record whose tag is a double's or a 32-bit integer's.
KVALO_EXPORT double recorder_misc_value(size_t i) {
  const mirn3::var_t& value = record_of<dto_misc_t>(i).values[0];
  const bool is_double = value.tag == static_cast<uint8_t>(mirn3::tag_t::float64);
  return is_double ? value.value.float64 : value.value.int32;
}
KVALO_EXPORT void recorder_misc_text(size_t i, char* out) {
  std::memcpy(out, record_of<dto_misc_t>(i).text, sizeof(dto_misc_t::text));
}
}
