// Module function: a container from the text on the clipboard.
#include "containers/clipboard.h"

#include "containers/assembly.h"
#include "containers/container_type.h"
#include "objects/frame.h"

namespace mirn2 {

PyObject* fn::create_from_clipboard(PyObject*, PyObject* args) {
  return guard(PyExc_Exception, [&] {
    require_count(args, 0, "create_from_clipboard");
    std::shared_ptr<Container> container = create_container_from_clipboard();
    if (!container) throw python_error();
    return show_container(std::move(container)).release();
  });
}

}  // namespace mirn2
