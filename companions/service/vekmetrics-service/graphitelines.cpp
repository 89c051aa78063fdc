#include "graphitelines.hpp"

#include "common/numbers.hpp"

#include <math.h>
#include <string.h>

// Appends a string with "_" in place of what would break the line (spaces, control characters, and
// what is not UTF-8, for which a server closes the connection) and of the ASCII characters given.
static void append_clean(GString *text, const char *string, const char *unwanted) {
  for (const char *c = string; *c;) {
    if (*c > ' ' && *c < '\x7f') {
      g_string_append_c(text, *unwanted && strchr(unwanted, *c) ? '_' : *c);
      c++;
      continue;
    }
    gunichar character = g_utf8_get_char_validated(c, -1);
    bool is_utf8 = character < static_cast<gunichar>(-2);
    if (!is_utf8 || g_unichar_isspace(character) || g_unichar_iscntrl(character))
      g_string_append_c(text, '_');
    else
      g_string_append_unichar(text, character);
    c = is_utf8 ? g_utf8_next_char(c) : c + 1;
  }
}

// A server refuses a line with an empty tag, and a value that begins with "~".
static void append_tag(GString *text, const char *name, const char *value) {
  g_string_append_c(text, ';');
  append_clean(text, *name ? name : "_", ";!^=");
  g_string_append_c(text, '=');
  if (*value == '~' || !*value)
    g_string_append_c(text, '_');
  append_clean(text, *value == '~' ? value + 1 : value, ";");
}

using vekin::GraphiteLines;

void GraphiteLines::init() {
  key = g_string_sized_new(128);
  tags = g_string_sized_new(128);
  line = g_string_sized_new(256);
}

void GraphiteLines::clear() {
  for (GString *text : {key, tags, line})
    g_string_free(text, TRUE);
}

void GraphiteLines::begin(const char *prefix, bool tagged, const char *name, char **dimensions,
                          const char *unit) {
  g_string_truncate(key, 0);
  g_string_truncate(tags, 0);
  const char *unwanted = tagged ? ";" : "";

  if (prefix && *prefix) {
    append_clean(key, prefix, unwanted);
    g_string_append_c(key, '.');
  }
  if (dimensions && tagged) {
    for (char **pair = dimensions; pair[0] && pair[1]; pair += 2)
      append_tag(tags, pair[0], pair[1]);
  } else if (dimensions) {  // an empty vector adds its "." all the same
    for (char **string = dimensions; *string; string++) {
      if (string != dimensions)
        g_string_append_c(key, '.');
      append_clean(key, *string, unwanted);
    }
    g_string_append_c(key, '.');
  }
  if (unit) {  // and so does an empty unit
    append_clean(key, unit, unwanted);
    g_string_append_c(key, '.');
  }
  append_clean(key, name ? name : "_", unwanted);  // a disposed metric has none
}

const GString *GraphiteLines::make(const char *suffix, const char *value, gint64 timestamp) {
  g_string_truncate(line, 0);
  g_string_append_len(line, key->str, static_cast<gssize>(key->len));
  g_string_append(line, suffix);
  g_string_append_len(line, tags->str, static_cast<gssize>(tags->len));
  g_string_append_c(line, ' ');
  g_string_append(line, value);
  g_string_append_c(line, ' ');
  g_string_append(line, Decimal(timestamp / G_USEC_PER_SEC).text);  // toward zero
  g_string_append_c(line, '\n');
  return line;
}

vekin::QuantileSuffix::QuantileSuffix(gdouble quantile) {
  char digits[24];
  g_ascii_formatd(digits, sizeof digits, "%.15f", fabs(quantile));  // -0.0 is 0.0
  gsize length = strlen(digits);
  while (length > strlen("0.00") && digits[length - 1] == '0')
    length--;
  digits[length] = '\0';
  // Only 1 has a digit before the point that counts.
  g_snprintf(text, sizeof text, ".p%s%s", *digits == '1' ? "1" : "", digits + strlen("0."));
}
