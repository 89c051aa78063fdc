#pragma once

// Numbers as text, the same in every locale: vekin::Decimal(42).text.

#include <glib.h>

#include <charconv>
#include <concepts>

#include <float.h>

namespace vekin {

// An integer as "%lli" or "%lu" gives it, without the long way through a format.
struct Decimal {
  char text[sizeof "-9223372036854775808"];

  explicit Decimal(std::integral auto value) {
    *std::to_chars(text, text + sizeof text, value).ptr = '\0';
  }
};

// A double as "%f" gives it.
struct FixedPoint {
  char text[DBL_MAX_10_EXP + sizeof "-0.000000"];

  explicit FixedPoint(gdouble value) { g_ascii_formatd(text, sizeof text, "%f", value); }
};

// A double that reads back to the same double.
struct RoundTrip {
  char text[G_ASCII_DTOSTR_BUF_SIZE];

  explicit RoundTrip(gdouble value) { g_ascii_dtostr(text, sizeof text, value); }
};

}  // namespace vekin
