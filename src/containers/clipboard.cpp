// Module function: a container from the text on the clipboard.
#include "containers/assembly.h"
#include "containers/container_type.h"
#include "containers/registry_functions.h"

namespace mirn2::fn {

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

}  // namespace mirn2::fn
