#include "json.hpp"

#include "common/numbers.hpp"

#include <math.h>

namespace vekin::web {

static constexpr gdouble kMaxExact = 1LL << 53;  // from here on, not every integer is a double

void append_json_string(GString *text, const char *string) {
  g_autofree char *valid = g_utf8_make_valid(string, -1);
  g_string_append_c(text, '"');
  for (const char *c = valid; *c; c++) {
    if (static_cast<guchar>(*c) < ' ') {
      g_string_append_printf(text, "\\u%04x", static_cast<guint>(*c));
    } else {
      if (*c == '"' || *c == '\\')
        g_string_append_c(text, '\\');
      g_string_append_c(text, *c);
    }
  }
  g_string_append_c(text, '"');
}

static bool is_integer(gdouble number) {
  return fabs(number) <= kMaxExact && static_cast<gdouble>(static_cast<gint64>(number)) == number;
}

void append_json_number(GString *text, gdouble number) {
  if (isnan(number))
    g_string_append(text, "null");
  else if (isinf(number))
    g_string_append(text, signbit(number) ? "\"-inf\"" : "\"inf\"");
  else if (is_integer(number))
    g_string_append(text, Decimal(static_cast<gint64>(number)).text);
  else
    g_string_append(text, RoundTrip(number).text);
}

void append_json_seconds(GString *text, gint64 time) {
  auto magnitude = time < 0 ? -static_cast<guint64>(time) : static_cast<guint64>(time);
  auto fraction = magnitude % G_USEC_PER_SEC;
  if (time < 0)
    g_string_append_c(text, '-');
  g_string_append(text, Decimal(magnitude / G_USEC_PER_SEC).text);
  if (fraction == 0)
    return;
  g_string_append_c(text, '.');
  for (gint64 unit = G_USEC_PER_SEC / 10; fraction > 0; unit /= 10) {
    g_string_append_c(text, static_cast<char>('0' + fraction / unit));
    fraction %= unit;
  }
}

}  // namespace vekin::web
