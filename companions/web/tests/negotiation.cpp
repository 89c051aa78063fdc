// Tests of what requests ask for.

#include <vekmetrics-web/negotiation.hpp>

#include "support/fixture.h"

using namespace vekin::web;

TEST(accept_decides_over_the_format) {
  static constexpr auto kOpenMetrics = VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS;
  static constexpr auto kText = VEK_SERVICE_PROMETHEUS_FORMAT_TEXT;
  static const struct {
    const char *accept;
    VekServicePrometheusFormat expected;
  } rows[] = {
      {nullptr, kText},
      {"", kText},
      {"*/*", kText},
      {"text/plain", kText},
      {"text/html, */*;q=0.1", kText},
      {"image/png", kText},
      {"application/openmetrics-text", kOpenMetrics},
      {"Application/OpenMetrics-Text; Version=1.0.0; charset=utf-8", kOpenMetrics},
      {"application/openmetrics-text;version=\"1.0.0\"", kOpenMetrics},
      {"application/openmetrics-text;version=0.0.1", kText},
      {"application/openmetrics-text;version=1", kText},
      {"application/openmetrics-text;version=\"1.0.0x", kText},
      {"application/openmetrics-text;version=\"", kText},
      {"application/openmetrics-text;version=\"\"", kOpenMetrics},
      {"application/openmetrics-text;version=1.0.0\"", kText},
      {"application/openmetrics-text;q=0.5,text/plain;version=0.0.3;q=0.6", kOpenMetrics},
      {"application/openmetrics-text;q=0.5,text/plain;version=0.0.4;q=0.6", kText},
      {"application/openmetrics-text;version=2.0.0,*/*;q=0.1", kText},
      {"application/openmetrics-text;q=0", kText},
      {"application/openmetrics-text;q=0.5,text/plain;q=0.6", kText},
      {"application/openmetrics-text;q=0.5,text/plain;q=0.5", kOpenMetrics},
      {"application/openmetrics-text;q=0.55 , text/plain; q=0.549", kOpenMetrics},
      {"application/openmetrics-text;q=0.001", kOpenMetrics},
      {"application/openmetrics-text;q=0.5,*/*", kText},
      {"application/openmetrics-text;q=0.5,text/plain;q=0,*/*", kOpenMetrics},
      {"application/openmetrics-text;q=0.5,text/*;q=0.4,*/*", kOpenMetrics},
      {"application/openmetrics-text;q=0.5,text/*;q=0.6", kText},
      {"application/openmetrics-text;q=0.5,text/plain;q=0.4,text/*;q=0.6", kOpenMetrics},
      {"application/openmetrics-text;q=high", kText},
      {"application/openmetrics-text;q=", kText},
      {"application/openmetrics-text;q=-1", kText},
      {"application/openmetrics-text;q=2", kText},
      {"application/openmetrics-text;q=15", kText},
      {"application/openmetrics-text;q=1", kOpenMetrics},
      {"application/openmetrics-text;q=1.000", kOpenMetrics},
      {"application/openmetrics-text;q=0.1234", kText},
      {"application/openmetrics-text;q=0x5", kText},
      {"application/openmetrics-text;q=0.5x", kText},
      {"application/openmetrics-text;q=0.199,text/plain;q=0.2", kText},
      {"application/openmetrics-text;q=0.999,text/plain;q=1", kText},
      {"application/openmetrics-text;q=1,text/plain", kOpenMetrics},
      {"application/openmetrics-text,text/plain;q=1", kOpenMetrics},
      {"application/openmetrics-text,text/plain;q=1.5", kOpenMetrics},
      {",,;=;q,application/openmetrics-text,;", kOpenMetrics},
      {"application/openmetrics-text;version=1.0.0,"
       "application/openmetrics-text;version=0.0.1;q=0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1",
       kOpenMetrics},
  };
  for (auto &row : rows) {
    g_test_message("%s", row.accept ? row.accept : "(none)");
    g_assert_cmpint(choose_format(row.accept), ==, row.expected);
  }
}

TEST(accept_encoding_decides_over_gzip) {
  static const struct {
    const char *accept_encoding;
    bool expected;
  } rows[] = {
      {nullptr, false},
      {"", false},
      {"gzip", true},
      {"deflate, GZIP", true},
      {"x-gzip", true},
      {"gzip;q=0", false},
      {"gzip;q=0.000", false},
      {"gzip;q=0.001", true},
      {"gzip;q=0,x-gzip", true},
      {"x-gzip,gzip;q=0", true},
      {"gzip,*;q=0", true},
      {"*", true},
      {"*;q=0", false},
      {"gzip;q=0,*", false},
      {"*;q=0,gzip;q=1.0", true},
      {"identity", false},
      {"gzipped", false},
  };
  for (auto &row : rows) {
    g_test_message("%s", row.accept_encoding ? row.accept_encoding : "(none)");
    g_assert_cmpint(allows_gzip(row.accept_encoding), ==, row.expected);
  }
}

TEST(if_none_match_names_tags) {
  static const struct {
    const char *if_none_match;
    bool expected;
  } rows[] = {
      {nullptr, false},       {"", false},    {"\"a\"", true},  {"W/\"a\"", true},
      {"\"b\", \"a\"", true}, {"*", true},    {"\"b\"", false}, {"a", false},
      {"\"a-gzip\"", false},  {"\"a", false},
  };
  for (auto &row : rows) {
    g_test_message("%s", row.if_none_match ? row.if_none_match : "(none)");
    g_assert_cmpint(matches_tag(row.if_none_match, "\"a\""), ==, row.expected);
  }
}

TEST(hosts_are_names_and_ports) {
  static const struct {
    const char *host, *expected;
    bool is_local;
  } rows[] = {
      {"localhost", "localhost", true},
      {"LocalHost:9090", "localhost", true},
      {"127.0.0.1", "127.0.0.1", true},
      {"127.0.0.1:1", "127.0.0.1", true},
      {"[::1]", "[::1]", true},
      {"[::1]:9090", "[::1]", true},
      {"evil.example:9090", "evil.example", false},
      {"localhost.evil.example", "localhost.evil.example", false},
      {"127.0.0.1.evil.example", "127.0.0.1.evil.example", false},
      {"localhost:", "localhost", true},
      {"localhost:x", nullptr, false},
      {"localhost:80:80", nullptr, false},
      {"[::1]evil", nullptr, false},
      {"[::1", nullptr, false},
      {"::1", nullptr, false},
      {":80", nullptr, false},
      {"", nullptr, false},
      {nullptr, nullptr, false},
  };
  for (auto &row : rows) {
    g_test_message("%s", row.host ? row.host : "(none)");
    g_autofree char *name = get_host_name(row.host);
    g_assert_cmpstr(name, ==, row.expected);
    if (name)
      g_assert_cmpint(is_local_name(name), ==, row.is_local);
  }
}
