#include "files.hpp"

#include "common/internal.hpp"

extern "C" void vek_web_page_register_resource(void);  // the generated header is for C alone

namespace vekin::web {

struct Files {
  GHashTable *pages;  // from path to Page, of what has been asked for
};

// Not when the library is loaded: programs that show no page do without.
static void register_files() {
  static gsize registered;
  if (!g_once_init_enter(&registered))
    return;
  vek_web_page_register_resource();
  g_once_init_leave(&registered, 1);
}

Files *files_new() {
  register_files();
  auto *self = g_new(Files, 1);
  self->pages =
      g_hash_table_new_full(g_str_hash, g_str_equal, g_free, release_element<Page, page_unref>);
  return self;
}

void files_free(Files *self) {
  g_hash_table_unref(self->pages);
  g_free(self);
}

// The page is made of HTML, CSS and JavaScript.
static const char *get_content_type(const char *path) {
  if (g_str_has_suffix(path, ".html"))
    return "text/html; charset=utf-8";
  if (g_str_has_suffix(path, ".css"))
    return "text/css; charset=utf-8";
  return "text/javascript; charset=utf-8";
}

Page *files_find(Files *self, const char *path) {
  if (g_str_equal(path, "/"))
    path = "/index.html";
  if (g_str_has_suffix(path, "/"))
    return nullptr;  // GIO would find the file without it
  auto *page = as<Page>(g_hash_table_lookup(self->pages, path));
  if (page)
    return page;
  g_autofree char *name = g_strconcat("/vekmetrics-web", path, nullptr);
  g_autoptr(GBytes) contents = g_resources_lookup_data(name, G_RESOURCE_LOOKUP_FLAGS_NONE, nullptr);
  if (!contents)
    return nullptr;
  page = page_new(contents, get_content_type(path));
  g_hash_table_insert(self->pages, g_strdup(path), page);
  return page;
}

}  // namespace vekin::web
