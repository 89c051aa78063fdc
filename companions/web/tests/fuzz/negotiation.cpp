// What requests ask for: an input has a header in each line, without its name.

#include <vekmetrics-web/negotiation.hpp>

#include <string.h>

using namespace vekin::web;

extern "C" int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);
extern "C" int LLVMFuzzerTestOneInput(const guint8 *data, gsize size) {
  g_autofree char *text = g_strndup(reinterpret_cast<const char *>(data), size);
  g_auto(GStrv) lines = g_strsplit(text, "\n", 4);
  const char *headers[4] = {};
  for (guint i = 0; i < g_strv_length(lines); i++)
    headers[i] = lines[i];

  auto format = choose_format(headers[0]);
  g_assert_true(format == VEK_SERVICE_PROMETHEUS_FORMAT_TEXT || strcasestr(headers[0], "open"));
  if (allows_gzip(headers[1]))
    g_assert_true(strcasestr(headers[1], "gzip") || strchr(headers[1], '*'));
  if (matches_tag(headers[2], "\"tag\""))
    g_assert_true(strstr(headers[2], "\"tag\"") || strchr(headers[2], '*'));
  g_autofree char *name = get_host_name(headers[3]);
  if (name) {
    g_assert_true(*name && strcasestr(headers[3], name));
    g_assert_cmpint(is_local_name(name), <=, strpbrk(name, "/@ \t") == nullptr);
  }
  return 0;
}
