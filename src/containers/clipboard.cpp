#include "containers/clipboard.h"

#include "containers/bank.h"
#include "containers/container_type.h"
#include "containers/functions.h"
#include "readers/clipboard.h"
#include "readers/clipboard_text.h"
#include "runtime/exc.h"

namespace mirn2 {

std::shared_ptr<Container> create_container_from_clipboard() {
  return guard(
      PyExc_Exception,
      [&] {
        const Trace trace("create_container_from_clipboard");
        const auto reader = without_gil([] {
          const std::string text = rd::read_clipboard_text();
          return std::make_shared<rd::ReaderClipboard>(text);
        });
        auto container = std::make_shared<Container>();
        container->insert_reader(reader, true);
        bank().add(container);
        return container;
      },
      std::shared_ptr<Container>());
}

namespace fn {

namespace {

Ref create_from_clipboard() {
  std::shared_ptr<Container> container = create_container_from_clipboard();
  if (!container) throw python_error();
  return show_container(std::move(container));
}

}  // namespace

Rows clipboard_rows() {
  static const PyMethodDef rows[] = {
      row<"create_from_clipboard", "()", "", "Create new kvalo.Container object from clipboard content",
          create_from_clipboard, Frame{.failures = &PyExc_Exception, .counted = "create_from_clipboard"}>(),
  };
  return rows;
}

}  // namespace fn

}  // namespace mirn2
