// Measures block models without an interpreter in between, for models.py: one question a call, one line of
// JSON.
//
// models_run mix SAMPLES FOLDER: a thousand blocks (gain, sum, switch, lag, saturation); writes their C code
// models_run log SAMPLES: a hundred signals that are shown, against the same blocks without
// models_run build BLOCKS: building a model and validating it
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include "blocks/plexo.h"

namespace {

using Given = std::vector<std::pair<plexo::Property, double>>;
using plexo::Property;

// Time of the processor, which others on the machine do not stretch as much.
double now() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

struct Model {
  std::shared_ptr<plexo::PropertiesModel> links = std::make_shared<plexo::PropertiesModel>();
  std::shared_ptr<plexo::IMetaModel> meta = plexo::create_empty_meta_model(links);

  explicit Model(double samples) {
    meta->add(plexo::factory::create("subsys"), 0);
    meta->set_time(0.0, (samples - 1) * 0.001, 0.001);
  }
  uint64_t add(const char* type, const Given& given = {}) {
    auto properties = std::make_shared<plexo::PropertiesBlock>();
    for (const auto& [property, value] : given) properties->set(property, value);
    return meta->add(plexo::factory::create(type, properties), 1);
  }
  void link(uint64_t from, uint64_t to, int16_t port = 1, const std::string& name = "") {
    links->insert_link(from, to, 1, port, name);
  }

  // Blocks of five kinds, each fed by what came shortly before, with feedback through the lags.
  void add_mix(int count) {
    const uint64_t source = add("sine");
    uint64_t last = source, before = source;
    for (int i = 0; i < count; i += 5) {
      const uint64_t gain = add("gain", {{Property::expression, 0.9}});
      const uint64_t sum = add("sum"), lag = add("lag", {{Property::coeff_a, 0.1 + i * 0.001}});
      const uint64_t limit = add("saturation", {{Property::min, -2.0}, {Property::max, 2.0}});
      const uint64_t choice = add("switch", {{Property::coeff_a, 0.1}});
      link(last, gain), link(gain, sum), link(lag, sum, 2), link(sum, limit), link(limit, lag);
      link(limit, choice), link(lag, choice, 2), link(before, choice, 3);
      before = last;
      last = i % 100 == 95 ? source : choice;  // chains of a hundred
      if (last == source) link(choice, add("outport"));
    }
  }
  double run(double* checks = nullptr) {
    auto exec = plexo::create_empty_exec_model();
    if (meta->meta_process(0) != 0 || !meta->build(*exec)) std::exit(1);
    const double start = now();
    if (exec->run() != 0) std::exit(1);
    const double taken = now() - start;
    if (checks != nullptr) *checks = exec->column(0)[exec->samples() - 1];
    return taken;
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string question = argv[1];
  const double count = std::atof(argv[2]);
  if (question == "mix" && argc > 3) {
    Model model(count);
    model.add_mix(1000);
    double last = 0.0;
    const double taken = model.run(&last);
    if (plexo::coder_c::generate_code(argv[3], model.meta.get()) != 0) return 1;
    std::printf("{\"seconds\": %.17g, \"last\": %.17g}\n", taken, last);
  } else if (question == "log") {
    Model plain(count), shown(count);
    for (Model* model : {&plain, &shown}) {
      const uint64_t source = model->add("clock");
      for (int i = 0; i < 100; ++i) {
        const uint64_t gain = model->add("gain", {{Property::expression, i + 1.0}});
        model->link(source, gain);
        model->link(gain, model->add("cast"), 1, model == &shown ? "s" + std::to_string(i) : "");
      }
    }
    const double without = plain.run();
    std::printf("{\"seconds\": %.17g}\n", shown.run() - without);
  } else if (question == "build") {
    const double start = now();
    Model model(1000);
    uint64_t last = model.add("clock");
    for (int i = 1; i < static_cast<int>(count); ++i) {
      const uint64_t next = model.add("gain", {{Property::expression, 1.0 + i}});
      model.link(last, next);
      last = next;
    }
    const double built = now();
    if (model.meta->meta_process(0) != 0) return 1;
    std::printf("{\"build\": %.17g, \"validate\": %.17g}\n", built - start, now() - built);
  } else {
    return 2;
  }
}
