// The table of the module's functions.
#include "module/function_table.h"

#include <vector>

#include "charts/families.h"
#include "containers/registry_functions.h"
#include "export/export.h"
#include "functions/families.h"
#include "module/config_functions.h"
#include "module/display_functions.h"
#include "module/host_functions.h"

namespace mirn2 {

namespace {

constexpr Rows (*families[])() = {
    fn::host_rows,   fn::export_rows,   fn::array_rows,        fn::clipboard_rows, fn::generator_rows,
    fn::search_rows, fn::config_rows,   fn::display_rows,      fn::chart_rows,     fn::annotation_rows,
    fn::angle_rows,  fn::calculus_rows, fn::conditioning_rows, fn::filter_rows,    fn::interpolation_rows,
    fn::lookup_rows, fn::insight_rows,  fn::spectral_rows,     fn::sampling_rows,  fn::fit_rows,
    fn::unit_rows,   fn::math_rows,     fn::merge_rows,        fn::page_rows,
};

std::vector<PyMethodDef> all_rows() {
  std::vector<PyMethodDef> table;
  for (const auto family : families) {
    const Rows rows = family();
    table.insert(table.end(), rows.begin(), rows.end());
  }
  table.push_back({});
  return table;
}

}  // namespace

PyMethodDef* function_table() {
  static std::vector<PyMethodDef> table = all_rows();
  return table.data();
}

}  // namespace mirn2
