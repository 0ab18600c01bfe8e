// Starts, reads and stops the live sources of a Container.
#include "containers/realtime.h"

#include <algorithm>
#include <exception>
#include <optional>

#include "containers/derived_readers.h"
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

using Variables = std::vector<std::shared_ptr<TimeSeries>>;

// The last n samples of a record.
LoadedSamples latest(const TimeSeries& record, uint64_t n) {
  LoadedSamples samples{record.x->hold(), record.y->hold()};
  samples.x.remove_prefix(samples.x.size() - n);
  samples.y.remove_prefix(samples.y.size() - n);
  return samples;
}

// Gives the bit fields of the variables what these have received.
void receive_bit_fields(const Container& container, const Variables& variables,
                        const std::vector<LoadedSamples>& delivered, uint64_t samples,
                        std::vector<Ref>& dropped) {
  for (const auto& series : container.variables()) {
    for (const auto& reader : series->readers) {
      const auto* field = dynamic_cast<const rd::ReaderUnpacked*>(reader.get());
      if (field == nullptr) continue;
      const auto source = std::ranges::find(variables, field->source());
      if (source == variables.end()) continue;
      const uint64_t n = delivered[static_cast<size_t>(source - variables.begin())].x.size();
      receive(*series, field->decode(latest(**source, n)), samples, dropped);
    }
  }
}

// Reads one source. The reader stays taken until the samples are in the series, so that two threads cannot
// put their deliveries in the wrong order.
void read_source(const Container& container, rd::Reader& reader, uint64_t samples,
                 std::vector<Ref>& dropped) {
  std::optional<rd::Reader::Turn> turn;
  without_gil([&] { turn.emplace(reader); });
  Variables variables = container.variables();
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
  receive_bit_fields(container, variables, delivered, samples, dropped);
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
