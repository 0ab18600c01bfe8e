// Script function export_to_file: arguments to columns, and errors to Python.
#include "export/export.h"

#include <memory>
#include <string>
#include <vector>

#include "containers/container_type.h"
#include "export/replaced_file.h"
#include "kernels/grid_text.h"
#include "objects/series_object.h"

namespace mirn2::fn {

namespace {

// One column: the script object, its title, and a share of its samples.
struct Column {
  Ref series;
  std::string title;
  Samples x;
  Samples y;
  std::unique_ptr<InUse> in_use;  // making room for the next column must not empty this one
};

struct Request {
  const char* path;
  std::string delimiter;
  kernels::Grid grid;
};

std::string text_of(Py_UCS4 character) {
  return text_argument(checked(PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, &character, 1)).get());
}

void add_children(std::vector<Column>& columns, const TimeSeries& record) {
  for (const auto& weak : record.children) {
    const std::shared_ptr<TimeSeries> child = weak.lock();
    if (!child) continue;
    columns.push_back({object_of(child), child->full_name, {}, {}, {}});
    add_children(columns, *child);
  }
}

std::string title_argument(PyObject* title) {
  try {
    return text_argument(title);
  } catch (const std::runtime_error& error) {
    fail(PyExc_TypeError, "{:s}", error.what());
  }
}

std::vector<Column> selection_of_list(PyObject* list) {
  std::vector<Column> columns;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
    PyObject* element = PyList_GET_ITEM(list, i);
    if (!PyTuple_Check(element) || PyTuple_GET_SIZE(element) != 2) {
      fail(PyExc_TypeError, "Elements of the list must be tuples (kvalo.TimeSeries, title)");
    }
    TimeSeriesObject* series = series_argument(PyTuple_GET_ITEM(element, 0));
    columns.push_back(
        {Ref::share(PyTuple_GET_ITEM(element, 0)), title_argument(PyTuple_GET_ITEM(element, 1)), {}, {}, {}});
    if (const TimeSeries* record = record_of(series)) add_children(columns, *record);
  }
  return columns;
}

std::vector<Column> selection_of_container(const ContainerObject* container) {
  std::vector<Column> columns;
  if (container->container == nullptr) return columns;
  for (const auto& series : (*container->container)->variables()) {
    columns.push_back({object_of(series), series->main_name, {}, {}, {}});
  }
  return columns;
}

std::vector<Column> select(PyObject* source) {
  if (PyList_Check(source)) return selection_of_list(source);
  if (const ContainerObject* container = as_container(source)) return selection_of_container(container);
  fail(PyExc_ValueError, "Invalid source object");
}

void check_grid(const kernels::Grid& grid) {
  if (grid.step <= 0) fail(PyExc_ValueError, "Step ({:g}) must be greater than zero", grid.step);
  if (grid.tini >= grid.tend) {
    fail(PyExc_ValueError, "Start time ({:g}) must be less than end time ({:g})", grid.tini, grid.tend);
  }
  if (!kernels::grid_advances(grid.tini, grid.step, grid.tend)) {
    fail(PyExc_ValueError,
         "Step ({:g}), start time ({:g}) and end time ({:g}) must be finite, and the step large enough to "
         "move "
         "the time at both ends",
         grid.step, grid.tini, grid.tend);
  }
}

// Loads every column and takes a share of its samples at once. Columns without samples are dropped.
void load(std::vector<Column>& columns) {
  for (Column& column : columns) {
    TimeSeriesObject* series = as_series(column.series.get());
    load_samples(series);
    const mirn2::Column* x = axis_of(series->xdata);
    const mirn2::Column* y = axis_of(series->ydata);
    if (x == nullptr || y == nullptr || x->empty() || y->empty()) continue;
    if (x->size() != y->size()) {
      fail(PyExc_ValueError, "'{:s}' has {} times for {} values", column.title, x->size(), y->size());
    }
    if (series->source != nullptr) column.in_use = std::make_unique<InUse>(*series->source);
    column.x = x->hold();
    column.y = y->hold();
  }
  std::erase_if(columns, [](const Column& column) { return column.x.empty(); });
  if (columns.empty()) fail(PyExc_ValueError, "No kvalo.TimeSeries has valid values");
}

void write(const Request& request, const std::vector<Column>& columns) {
  std::string header = "Time";
  std::vector<kernels::GridColumn> grid_columns;
  for (const Column& column : columns) {
    header += request.delimiter + column.title;
    grid_columns.push_back({column.x.span(), column.y.span()});
  }
  header += '\n';
  kernels::GridWriter rows(grid_columns, request.delimiter, request.grid);
  ReplacedFile file(request.path);
  file.write(header);
  while (true) {
    const bool more = without_gil([&] {
      const auto pieces = rows.next();
      for (const std::string_view piece : pieces) file.write(piece);
      return !pieces.empty();
    });
    if (!more) break;
    if (PyErr_CheckSignals() != 0) throw python_error();
  }
  file.commit();
}

void export_to_file(const char* path, Py_UCS4 delimiter, double step, double tini, double tend,
                    PyObject* source) {
  const Request request{path, text_of(delimiter), {.tini = tini, .step = step, .tend = tend}};
  std::vector<Column> columns = select(source);
  if (columns.empty()) fail(PyExc_ValueError, "No kvalo.TimeSeries was selected");
  check_grid(request.grid);
  load(columns);
  try {
    write(request, columns);
  } catch (const python_error&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    fail(PyExc_OSError, "Error at '{:s}': {:s}", path, error.what());
  }
}

}  // namespace

Rows export_rows() {
  static const PyMethodDef rows[] = {
      row<"export_to_file", "(path, delimiter, step, tini, tend, src)", "sCdddO",
          "Export a kvalo.Container or a list of kvalo.TimeSeries objects to a delimiter-separated values "
          "file",
          export_to_file, Frame{.online = "export_to_file"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
