// Kinds that structure a model: systems within systems, their ports, and wires without lines.
#include "blocks/kind.h"

namespace plexo {

Kinds structure_kinds() {
  using enum Property;
  constexpr Bounds port = whole(1, 32767);
  return {
      {.type = "subsys",
       .family = "Structure",
       .ports = {0, 0},
       .texts = {{.property = path, .choices = {}}},
       .rule =
           "holds other blocks; its ports are the `inport` and `outport` blocks in it, at most 8 in. With "
           "`path` its content is loaded from that model file"},
      {.type = "inport",
       .family = "Structure",
       .ports = {0, 1},
       .numbers = {{port_number, 0, port, Default::next_free}, {initial_value, 0}},
       // One in a system is a wire, and never gets here.
       .lower = [](const Values& v, Lowered& to) { to.become(Op::external, {v.number(initial_value)}); },
       .rule = "y = the value at that port of the system around it; in the top block `initialValue`, and in "
               "generated code the caller's value"},
      {.type = "outport",
       .family = "Structure",
       .ports = {1, 0},
       .numbers = {{port_number, 0, port, Default::next_free}},
       .rule = "gives its input to that port of the system around it; in the top block it is logged, and an "
               "output of generated code"},
      {.type = "goto",
       .family = "Structure",
       .ports = {1, 0},
       .texts = {{.property = target, .choices = {}, .is_required = true}},
       .rule = "gives its input to every `from` of that target, anywhere in the model"},
      {.type = "from",
       .family = "Structure",
       .ports = {0, 1},
       .texts = {{.property = target, .choices = {}, .is_required = true}},
       .rule = "y = the input of the `goto` of that target"},
  };
}

}  // namespace plexo
