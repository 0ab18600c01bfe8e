#include "containers/realtime.h"

#include <algorithm>
#include <exception>
#include <optional>

#include "objects/frame.h"
#include "objects/live.h"
#include "readers/plugin_native.h"

namespace mirn2 {

namespace {

using LiveReader = std::shared_ptr<rd::ReaderPluginDLLRealTime>;

std::vector<LiveReader> live_readers(const Container& container) {
  std::vector<LiveReader> live;
  for (const auto& reader : container.readers()) {
    if (auto source = std::dynamic_pointer_cast<rd::ReaderPluginDLLRealTime>(reader)) {
      live.push_back(std::move(source));
    }
  }
  return live;
}

// The reader's variables and what they were delivered. Two threads that read one source must not put their
// deliveries in the wrong order, so the reader stays taken until they are in the series.
void read_source(const Container& container, rd::Reader& reader, uint64_t samples,
                 std::vector<Ref>& dropped) {
  std::optional<rd::Reader::Turn> turn;
  without_gil([&] { turn.emplace(reader); });
  auto variables = container.variables();
  std::erase_if(variables, [&reader](const auto& series) {
    return std::ranges::none_of(series->readers, [&](const auto& own) { return own.get() == &reader; });
  });
  std::vector<LoadedSamples> delivered(variables.size());
  std::exception_ptr failure;
  without_gil([&] {
    for (size_t i = 0; i < variables.size(); ++i) {
      rd::rto_t request;
      request.tag_key = variables[i]->main_name;
      request.name = variables[i]->full_name;
      request.tolerate_unknown = true;  // a group has no samples of its own
      try {
        reader.load(request);
        delivered[i] = {std::move(request.x), std::move(request.y)};
      } catch (const std::exception&) {
        if (!failure) failure = std::current_exception();
      }
    }
  });
  for (size_t i = 0; i < variables.size(); ++i) receive(*variables[i], delivered[i], samples, dropped);
  if (failure) std::rethrow_exception(failure);
}

}  // namespace

void prepare_receiving(Container& container) {
  std::vector<Ref> dropped;
  for (const auto& series : container.variables()) receive(*series, {}, 0, dropped);
}

void start_receiving(const Container& container) {
  const auto live = live_readers(container);
  without_gil([&] {
    for (const LiveReader& reader : live) reader->start();
  });
}

void stop_receiving(const Container& container) {
  const auto live = live_readers(container);
  without_gil([&] {
    for (const LiveReader& reader : live) reader->stop();
  });
}

void read_received(const Container& container, uint64_t samples) {
  std::vector<Ref> dropped;  // released when no reader is taken any more: releasing may run scripts
  for (const LiveReader& reader : live_readers(container)) read_source(container, *reader, samples, dropped);
}

}  // namespace mirn2
