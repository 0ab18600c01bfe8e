// A host for the tests, compiled against the public headers alone: records the messages it is handed and
// shows their fields to Python through ctypes, by the table of fields that all hosts have.
#include <atomic>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kvalo/host.h"
#include "kvalo/records.h"

namespace {

namespace ilc = mirn3::ilc;

std::vector<std::shared_ptr<ilc::msgdata_t>> messages;
ilc::handler_t handler = [](std::shared_ptr<ilc::msgdata_t> message) {
  messages.push_back(std::move(message));
};

const std::byte* record_of(size_t i) { return static_cast<const std::byte*>(messages.at(i)->data.get()); }

const ilc::field_t* find_field(size_t i, std::string_view name) {
  const ilc::message_t* message = ilc::find_message(messages.at(i)->id);
  if (message == nullptr) return nullptr;
  for (const ilc::field_t& row : ilc::field_table) {
    if (std::string_view(row.record) == message->record && row.name == name) return &row;
  }
  return nullptr;
}

// A thread of the host that reads one record's samples again and again.
std::thread reader;
std::atomic<bool> reading = false;
std::atomic<uint64_t> wrong_sums = 0;

}  // namespace

extern "C" {

KVALO_EXPORT void* recorder_handler() { return &handler; }
KVALO_EXPORT size_t recorder_count() { return messages.size(); }
KVALO_EXPORT void recorder_clear() { messages.clear(); }
KVALO_EXPORT uint32_t recorder_id(size_t i) { return messages.at(i)->id; }
KVALO_EXPORT long recorder_holders(size_t i) { return messages.at(i).use_count(); }

// The type of a field (field_type_t), or -1; its bytes and how many they are.
KVALO_EXPORT int recorder_field(size_t i, const char* name, const void** bytes, size_t* size) {
  const ilc::field_t* field = find_field(i, name);
  if (field == nullptr) return -1;
  *bytes = record_of(i) + field->offset;
  *size = field->size;
  if (field->type == ilc::field_type_t::string) {
    const auto& text = *static_cast<const std::string*>(*bytes);
    *bytes = text.data();
    *size = text.size();
  } else if (field->type == ilc::field_type_t::samples) {
    const auto& samples = *static_cast<const mirn3::shared_vector<double>*>(*bytes);
    *bytes = samples.data();
    *size = samples.size() * sizeof(double);
  }
  return static_cast<int>(field->type);
}

// Starts a thread that adds up the y samples of a chart message until it is told to stop, and counts the sums
// that differ from the first.
KVALO_EXPORT void recorder_start_reading(size_t i) {
  wrong_sums = 0;
  reading = true;
  reader = std::thread([message = messages.at(i)] {
    const auto& y = static_cast<const dto_chart_t*>(message->data.get())->y;
    const auto sum = [&y] { return std::accumulate(y.data(), y.data() + y.size(), 0.0); };
    const double first = sum();
    do {
      if (sum() != first) ++wrong_sums;
    } while (reading);
  });
}
KVALO_EXPORT uint64_t recorder_stop_reading() {
  reading = false;
  reader.join();
  return wrong_sums;
}
}
