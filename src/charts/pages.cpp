// Module functions: the pages that charts stand on.
#include "charts/families.h"

namespace mirn2::fn {

Rows page_rows() {
  static const PyMethodDef rows[] = {
      row<"set_page", "(id, cols=-1)", "K|i", "Set page parameters", pending>(),
      row<"new_page", "(title='', /, id=0, name='')", "|sKs", "Create page", pending>(),
      row<"del_page", "(id=0, name='')", "|Ks", "Remove page", pending>(),
  };
  return rows;
}

}  // namespace mirn2::fn
