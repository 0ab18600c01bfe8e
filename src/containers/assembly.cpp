// Puts containers together: reader, variables, bit fields, registry.
#include "containers/assembly.h"

#include <fmt/format.h>

#include <new>
#include <string>

#include "containers/archives.h"
#include "containers/bank.h"
#include "containers/reader_choice.h"
#include "kernels/coding_name.h"
#include "objects/frame.h"
#include "readers/clipboard.h"
#include "readers/clipboard_text.h"
#include "runtime/log.h"
#include "runtime/unpack_definitions.h"

namespace mirn2 {

namespace {

namespace fs = std::filesystem;
using ContainerPtr = std::shared_ptr<Container>;

// The variables that bit-field definitions add.
void add_bit_fields(Container& container) {
  mirn3::unpack::load();
  if (mirn3::unpack::is_empty()) return;
  const auto definitions = mirn3::unpack::definitions();
  for (const auto& series : container.variables()) {
    for (const auto& made : definitions) {
      if (made.variable != series->main_name) continue;
      const kernels::BitField field{made.msb - made.base, made.lsb - made.base, made.gain, made.bias};
      auto reader = std::make_shared<rd::ReaderUnpacked>(series, field, kernels::coding_named(made.type));
      if (container.add_derived(series, made.name, std::move(reader))) continue;
      mirn3::log::write(mirn3::log::warning,
                        fmt::format("'{:s}' is not unpacked from '{:s}': there is a variable of that name",
                                    made.name, series->full_name));
    }
  }
}

ContainerPtr container_over(std::shared_ptr<rd::Reader> reader) {
  auto container = std::make_shared<Container>();
  container->insert_reader(std::move(reader));
  return container;
}

ContainerPtr assemble(std::shared_ptr<rd::Reader> reader) {
  ContainerPtr container = container_over(std::move(reader));
  add_bit_fields(*container);
  bank().add(container);
  return container;
}

// Makes a container; a failure is reported with `what` was being loaded.
template <typename Make>
ContainerPtr reported(std::string_view what, Make&& make) {
  return guard(
      PyExc_Exception,
      [&]() -> ContainerPtr {
        try {
          return make();
        } catch (const std::bad_alloc&) {
          throw;
        } catch (const python_error&) {
          throw;  // an interruption
        } catch (const std::exception& error) {
          fail(PyExc_Exception, "Error while loading {:s}: {:s}", what, error.what());
        }
      },
      ContainerPtr());
}

}  // namespace

ContainerPtr create_container_from_file(const fs::path& path) {
  return reported(fmt::format("file '{:s}'", path.string()), [&] {
    const Trace trace("create_container_from_file");
    return assemble(choose_reader(path));
  });
}

ContainerPtr create_container_with_plugin(const fs::path& path, const fs::path& plugin) {
  return reported(fmt::format("file '{:s}' with plugin '{:s}'", path.string(), plugin.string()), [&] {
    const Trace trace("create_container_from_file");
    return assemble(plugin_reader(path, plugin));
  });
}

ContainerPtr create_container_from_realtime(const fs::path& plugin) {
  return reported(fmt::format("data from real-time source with plugin '{:s}'", plugin.string()), [&] {
    const Trace trace("create_container_from_realtime");
    return assemble(realtime_reader(plugin));
  });
}

ContainerPtr create_unregistered_container(const fs::path& path) {
  return reported(fmt::format("file '{:s}'", path.string()), [&] {
    const Trace trace("create_container_from_file");
    return container_over(choose_reader(path));
  });
}

ContainerPtr create_container_from_clipboard() {
  return guard(
      PyExc_Exception,
      [&] {
        const Trace trace("create_container_from_clipboard");
        auto reader =
            without_gil([] { return std::make_shared<rd::ReaderClipboard>(rd::read_clipboard_text()); });
        ContainerPtr container = container_over(std::move(reader));
        bank().add(container);
        return container;
      },
      ContainerPtr());
}

ContainerPtr create_container_from_window(const Container& whole, rd::TimeWindow window) {
  const fs::path path = whole.readers().empty() ? fs::path() : source_path(*whole.readers().front());
  ContainerPtr piece = container_over(std::make_shared<rd::ReaderWindow>(path, whole.variables(), window));
  bank().add(piece);
  return piece;
}

void add_file(Container& container, const fs::path& path) {
  container.insert_reader(choose_reader(path));
  bank().adopt(container);
}

}  // namespace mirn2
