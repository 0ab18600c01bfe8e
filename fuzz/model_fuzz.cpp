// Fuzzes the loader of model files: any bytes are loaded, checked, run for a few samples, saved, loaded again
// and turned into code. What was refused must have left nothing behind, and what was saved must come back the
// same.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "blocks/plexo.h"
#include "memory_file.h"
#include "own_home.h"

namespace {

constexpr size_t most_bytes = 1 << 16;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "model_fuzz: %s\n", what);
  std::abort();
}

std::string content(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A file may name other files; those of this machine are none of the fuzzer's business.
bool names_a_path(const uint8_t* data, size_t size) {
  return std::string_view(reinterpret_cast<const char*>(data), size).find("path") != std::string_view::npos;
}

void run(plexo::IMetaModel& model) {
  const plexo::Times times = model.times();
  model.set_time(times.ti, times.ti + 100 * times.ts, times.ts);
  if (model.meta_process(0) != 0) return;
  auto exec = plexo::create_empty_exec_model();
  if (model.build(*exec)) exec->run();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string home = give_own_home();
  if (size > most_bytes || names_a_path(data, size)) return 0;
  const MemoryFile file(data, size);
  const auto model = plexo::create_empty_meta_model();
  if (const int result = plexo::json::load(model.get(), file.path()); result != 0) {
    expect(result <= 6, "a result that nobody knows");
    expect(model->count() == 0 && model->links() == 0, "a file that was refused has left something behind");
    return 0;
  }
  const int code = model->meta_process(0);
  expect((code == 0) == (model->failed() == 0), "a code without its block");
  const std::string first = home + "/first.json", second = home + "/second.json";
  if (plexo::json::save(*model, first)) {
    const auto again = plexo::create_empty_meta_model();
    expect(plexo::json::load(again.get(), first) == 0, "what was saved does not load");
    expect(again->meta_process(0) == code, "what was saved gives another code");
    expect(plexo::json::save(*again, second) && content(first) == content(second),
           "what was saved is not the same");
  }
  if (code == 0) {
    expect(plexo::coder_c::generate_code(home + "/out", model.get()) == 0, "no C for a model that passes");
    expect(plexo::coder_py::generate_code(home + "/out", model.get()) == 0,
           "no Python for a model that passes");
  }
  run(*model);
  return 0;
}
