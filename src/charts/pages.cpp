// Module functions for the pages that charts stand on.
#include "charts/families.h"
#include "hostlink/send.h"
#include "hostlink/text_field.h"
#include "kvalo/records.h"
#include "runtime/num.h"

namespace mirn2::fn {

namespace {

using Id = unsigned long long;

void set_page(Id id, int cols) {
  hostlink::send<dto_page_set_page_t>({"page_set_page"}, [&](dto_page_set_page_t& record) {
    record.id = id;
    record.cols = cols;
  });
}

// A title by position and a name by keyword are the same; the name counts where both are given.
uint64_t new_page(const char* title, Id asked, const char* name) {
  const uint64_t id = mirn3::num::check_id(asked);
  hostlink::send<dto_page_t>({"page_new_page"}, [&](dto_page_t& record) {
    record.id = id;
    hostlink::put_cut_text(record.name, name != nullptr ? name : title);
  });
  return id;
}

void del_page(Id id, const char* name) {
  hostlink::send<dto_page_t>({"page_del_page"}, [&](dto_page_t& record) {
    record.id = id;
    hostlink::put_text(record.name, name, "name");
  });
}

}  // namespace

Rows page_rows() {
  static const PyMethodDef rows[] = {
      row<"set_page", "(id, cols=-1)", "K|i", "Set page parameters", set_page>(),
      row<"new_page", "(title='', /, id=0, name=...)", "|sKs", "Create page", new_page>(),
      row<"del_page", "(id=0, name='')", "|Ks", "Remove page", del_page>(),
  };
  return rows;
}

}  // namespace mirn2::fn
