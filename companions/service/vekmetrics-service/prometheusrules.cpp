#include "prometheusrules.hpp"

#include "common/internal.hpp"
#include "common/numbers.hpp"

#include <math.h>
#include <string.h>
#include <algorithm>
#include <charconv>
#include <iterator>

namespace vekin::prometheus {

namespace {

struct Label {
  char *name;
  const char *value;  // of the dimensions
};

void clear_label(gpointer label) {
  g_free(as<Label>(label)->name);
}

int compare_labels(gconstpointer a, gconstpointer b) {
  return strcmp(static_cast<const Label *>(a)->name, static_cast<const Label *>(b)->name);
}

// Appends the characters that a name may have, and "_" for each other one. A digit cannot begin it.
void append_allowed(GString *text, const char *string, const char *punctuation) {
  g_autofree char *mended =
      g_utf8_validate(string, -1, nullptr) ? nullptr : g_utf8_make_valid(string, -1);
  if (mended)
    string = mended;
  if (*string == '\0' || g_ascii_isdigit(*string))
    g_string_append_c(text, '_');
  for (const char *c = string; *c; c = g_utf8_next_char(c))
    g_string_append_c(text, g_ascii_isalnum(*c) || strchr(punctuation, *c) ? *c : '_');
}

bool has_label(const GArray *labels, const char *name) {
  for (guint i = 0; i < labels->len; i++)
    if (g_str_equal(g_array_index(labels, Label, i).name, name))
      return true;
  return false;
}

// A label that no other of the metric has. The formats keep those that begin with "__", "quantile"
// and "le" for themselves.
char *make_label_name(const char *dimension, const GArray *labels) {
  auto *name = g_string_new(nullptr);
  append_allowed(name, dimension, "_");
  if (g_str_has_prefix(name->str, "__") || g_str_equal(name->str, "quantile") ||
      g_str_equal(name->str, "le"))
    g_string_prepend(name, "dim_");

  gsize length = name->len;
  for (guint number = 2; has_label(labels, name->str); number++) {
    g_string_truncate(name, length);
    g_string_append_c(name, '_');
    g_string_append(name, Decimal(number).text);
    if (g_str_has_prefix(name->str, "__")) {  // as that of "_" does
      g_string_prepend(name, "dim_");
      length += strlen("dim_");
    }
  }
  return g_string_free(name, FALSE);
}

// Formats an integer over a power of ten, without trailing zeros.
void format_decimal(char *text, bool is_negative, guint64 scaled, int n_decimals) {
  char digits[sizeof "18446744073709551615"];
  auto n_digits = static_cast<int>(std::to_chars(digits, std::end(digits), scaled).ptr - digits);
  char *end = text;
  if (is_negative)
    *end++ = '-';
  int n_whole = std::max(n_digits - n_decimals, 0);
  end = std::copy_n(digits, n_whole, end);
  if (n_whole == 0)
    *end++ = '0';
  *end++ = '.';
  end = std::fill_n(end, std::max(n_decimals - n_digits, 0), '0');
  end = std::copy(digits + n_whole, digits + n_digits, end);
  while (end[-1] == '0')
    end--;
  if (end[-1] == '.')
    end--;
  *end = '\0';
}

// Formats numbers of usual sizes, many times as fast as printf() does.
bool format_usual(char *text, gdouble value) {
  gdouble magnitude = fabs(value);
  if (!(magnitude >= 1e-5 && magnitude < 1e15))
    return false;

  // Six decimals, as of a time in microseconds. If the quotient of an integer and a power of ten,
  // both exact, is the number, then so is the decimal as it is read: both are rounded to the
  // nearest.
  if (magnitude < 1e9) {
    auto scaled = static_cast<guint64>(magnitude * 1e6 + 0.5);
    if (static_cast<gdouble>(scaled) / 1e6 == magnitude) {
      format_decimal(text, value < 0, scaled, 6);
      return true;
    }
  }

  // Seventeen digits tell all numbers apart. These powers are exact, and what a long double has
  // more than a double keeps the product as near as that takes. Some processors have no more, and
  // neither has valgrind.
  // Untested: the tests are measured on processors whose long double is longer
  if (static_cast<long double>(magnitude) * (1 + 0x1p-63L) == magnitude)
    return false;
  int n_decimals = 1;
  long double power = 10;
  while (static_cast<long double>(magnitude) * power < 1e16L) {
    power *= 10;
    n_decimals++;
  }
  auto scaled = static_cast<guint64>(static_cast<long double>(magnitude) * power + 0.5L);
  format_decimal(text, value < 0, scaled, n_decimals);
  return true;
}

}  // namespace

void append_name(GString *text, const char *prefix, const char *name) {
  g_autofree char *joined = g_strconcat(prefix ? prefix : "", name, nullptr);
  append_allowed(text, joined, "_:");
}

char *make_labels(const char *const *dimensions) {
  auto *text = g_string_new(nullptr);
  g_autoptr(GArray) labels = g_array_new(FALSE, FALSE, sizeof(Label));
  g_array_set_clear_func(labels, clear_label);
  for (auto *pair = dimensions; pair && pair[0] && pair[1]; pair += 2) {
    Label label = {make_label_name(pair[0], labels), pair[1]};
    g_array_append_val(labels, label);
  }
  g_array_sort(labels, compare_labels);

  for (guint i = 0; i < labels->len; i++) {
    auto &label = g_array_index(labels, Label, i);
    if (*label.value == '\0')
      continue;  // to the formats an empty label is none
    if (text->len != 0)
      g_string_append_c(text, ',');
    g_string_append(text, label.name);
    g_string_append(text, "=\"");
    append_escaped(text, label.value, Quotes::escaped);
    g_string_append_c(text, '"');
  }
  return g_string_free(text, FALSE);
}

void append_escaped(GString *text, const char *string, Quotes quotes) {
  g_autofree char *mended =
      g_utf8_validate(string, -1, nullptr) ? nullptr : g_utf8_make_valid(string, -1);
  for (const char *c = mended ? mended : string; *c; c++) {
    if (*c == '\n') {
      g_string_append(text, "\\n");
      continue;
    }
    if (*c == '\\' || (*c == '"' && quotes == Quotes::escaped))
      g_string_append_c(text, '\\');
    g_string_append_c(text, *c);
  }
}

Number::Number(gdouble value) {
  if (isnan(value))
    g_strlcpy(text, "NaN", sizeof text);
  else if (isinf(value))
    g_strlcpy(text, value < 0 ? "-Inf" : "+Inf", sizeof text);
  else if (!format_usual(text, value))
    g_ascii_dtostr(text, sizeof text, value);
}

}  // namespace vekin::prometheus
