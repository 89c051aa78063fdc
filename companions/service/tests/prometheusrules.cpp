// Tests of the rules that make names, labels and numbers of the Prometheus text formats.

#include <locale.h>
#include <math.h>
#include <string.h>
#include <vekmetrics-service/prometheusrules.hpp>

#include "support/fixture.h"

using namespace vekin::prometheus;

TEST(names_are_made_of_what_the_formats_allow) {
  static const struct {
    const char *what, *prefix, *name, *expected;
  } rows[] = {
      {"letters, digits, underscores and colons stay", nullptr, "aZ09_:", "aZ09_:"},
      {"everything else is an underscore", nullptr, "http.requests-per second",
       "http_requests_per_second"},
      {"each character is one underscore", nullptr, "caf\xc3\xa9\xe2\x82\xac", "caf__"},
      {"each byte that is no character is one too", nullptr, "a\xff\xc3z", "a__z"},
      {"a digit cannot begin", nullptr, "9lives", "_9lives"},
      {"a prefix can begin before a digit", "v", "9lives", "v9lives"},
      {"a digit of the prefix cannot begin", "9", "lives", "_9lives"},
      {"a prefix goes by the same rules", "my site.", "x", "my_site_x"},
      {"an empty prefix is none", "", "x", "x"},
      {"nothing is an underscore", nullptr, "", "_"},
      {"a character may begin in the prefix", "a\xc3", "\xa9z", "a_z"},
  };
  for (auto &row : rows) {
    g_test_message("%s", row.what);
    g_autoptr(GString) text = g_string_new("# ");
    append_name(text, row.prefix, row.name);
    g_assert_cmpstr(text->str + 2, ==, row.expected);
  }
}

TEST(labels_are_made_of_what_the_formats_allow) {
  static const struct {
    const char *what;
    const char *dimensions[9];
    const char *expected;
  } rows[] = {
      {"none", {}, ""},
      {"one", {"host", "h1"}, R"(host="h1")"},
      {"they are sorted", {"host", "h1", "disk", "sda"}, R"(disk="sda",host="h1")"},
      {"other characters are underscores", {"a.b:c\xc3\xa9", "1"}, R"(a_b_c_="1")"},
      {"bytes that are no characters too", {"a\xff", "1"}, R"(a_="1")"},
      {"a digit cannot begin", {"9", "1"}, R"(_9="1")"},
      {"an empty name", {"", "1"}, R"(_="1")"},
      {"two underscores are kept for Prometheus", {"__name__", "1"}, R"(dim___name__="1")"},
      {"... also if they come of other characters", {"..a", "1"}, R"(dim___a="1")"},
      {"... or before a digit", {"_9", "1"}, R"(_9="1")"},
      {"quantile and le are kept", {"quantile", "1", "le", "2"}, R"(dim_le="2",dim_quantile="1")"},
      {"but not longer ones", {"quantiles", "1", "lee", "2"}, R"(lee="2",quantiles="1")"},
      {"the second of a name", {"a", "1", "a", "2"}, R"(a="1",a_2="2")"},
      {"the third", {"a.", "1", "a-", "2", "a_", "3"}, R"(a_="1",a__2="2",a__3="3")"},
      {"a number that is there already",
       {"a", "1", "a_2", "2", "a", "3"},
       R"(a="1",a_2="2",a_3="3")"},
      {"nothing but other characters, three times",
       {"+", "1", "-", "2", "", "3"},
       R"(_="1",dim___2="2",dim___3="3")"},
      {"quantile twice",
       {"quantile", "1", "quantile", "2"},
       R"(dim_quantile="1",dim_quantile_2="2")"},
      {"a name without a value", {"a", "1", "b"}, R"(a="1")"},
      {"nothing but that", {"a"}, ""},
      {"an empty value is no label", {"a", "", "b", "1"}, R"(b="1")"},
      {"values are escaped", {"a", "\"\\\n\t"}, "a=\"\\\"\\\\\\n\t\""},
      {"and mended", {"a", "x\xffy"}, "a=\"x\xef\xbf\xbdy\""},
  };
  for (auto &row : rows) {
    g_test_message("%s", row.what);
    g_autofree char *labels = make_labels(row.dimensions);
    g_assert_cmpstr(labels, ==, row.expected);
  }
  g_autofree char *labels = make_labels(nullptr);
  g_assert_cmpstr(labels, ==, "");
}

TEST(quotes_are_escaped_on_demand) {
  g_autoptr(GString) text = g_string_new(nullptr);
  append_escaped(text, "a\"b\\c\nd", Quotes::kept);
  g_assert_cmpstr(text->str, ==, "a\"b\\\\c\\nd");
  g_string_truncate(text, 0);
  append_escaped(text, "a\"b\\c\nd\xff", Quotes::escaped);
  g_assert_cmpstr(text->str, ==, "a\\\"b\\\\c\\nd\xef\xbf\xbd");
}

TEST(numbers_read_back) {
  static const struct {
    gdouble value;
    const char *expected;
  } rows[] = {
      {0, "0"},
      {-0.0, "-0"},
      {1, "1"},
      {-1, "-1"},
      {0.25, "0.25"},
      {0.1, "0.1"},
      {-0.00001, "-0.00001"},
      {0.000001, "9.9999999999999995e-07"},
      {0.0000001, "9.9999999999999995e-08"},
      {0.1 + 0.2, "0.30000000000000004"},
      {999999999.999999, "999999999.999999"},
      {999999999999999, "999999999999999"},
      {1000000000.000004, "1000000000.0000041"},
      {1e15, "1000000000000000"},
      {1e15 + 0.25, "1000000000000000.2"},
      {1e300, "1.0000000000000001e+300"},
      {5e-324, "4.9406564584124654e-324"},
      {NAN, "NaN"},
      {-NAN, "NaN"},
      {INFINITY, "+Inf"},
      {-INFINITY, "-Inf"},
  };
  for (auto &row : rows) {
    Number number(row.value);
    g_assert_cmpstr(number.text, ==, row.expected);
    if (row.value == row.value)
      g_assert_cmpfloat(g_ascii_strtod(row.expected, nullptr), ==, row.value);
  }
}

TEST(numbers_of_all_sizes_read_back) {
  g_autoptr(GRand) random = g_rand_new_with_seed(1);
  for (int i = 0; i < 10000; i++) {
    gdouble scale = static_cast<gdouble>(g_rand_int_range(random, 1, 1000001));
    gdouble value = g_rand_double_range(random, -1, 1) * scale;
    for (gdouble power = 1e-10; power < 1e20; power *= 10) {
      gdouble sized = value * power;
      g_assert_cmpfloat(g_ascii_strtod(Number(sized).text, nullptr), ==, sized);
    }
    gdouble decimal = g_rand_int_range(random, G_MININT32, G_MAXINT32) / 1e6;
    g_assert_cmpfloat(g_ascii_strtod(Number(decimal).text, nullptr), ==, decimal);
    g_assert_cmpuint(strlen(Number(decimal).text), <=, strlen("-2147.483648"));
  }
}
