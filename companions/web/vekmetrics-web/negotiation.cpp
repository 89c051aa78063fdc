#include "negotiation.hpp"

#include "common/internal.hpp"

#include <algorithm>
#include <string_view>

namespace vekin::web {

namespace {

constexpr std::string_view kBlank = " \t";

std::string_view strip(std::string_view text) {
  auto first = text.find_first_not_of(kBlank);
  if (first == text.npos)
    return {};
  text.remove_suffix(text.size() - 1 - text.find_last_not_of(kBlank));
  text.remove_prefix(first);
  return text;
}

// The first so many characters, or all. substr(), and what is made of it, would need the C++
// runtime.
std::string_view first(std::string_view text, std::size_t n) {
  return {text.data(), std::min(text.size(), n)};
}

// Takes what comes before a separator, or everything.
std::string_view take(std::string_view &text, char separator) {
  auto taken = first(text, text.find(separator));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  return strip(taken);
}

bool equals(std::string_view text, std::string_view word) {
  return text.size() == word.size() &&
         g_ascii_strncasecmp(text.data(), word.data(), text.size()) == 0;
}

std::string_view unquote(std::string_view text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text.remove_suffix(1);
    text.remove_prefix(1);
  }
  return text;
}

// A quality as thousandths: of "1", "0.5", "0.125". Anything else counts as none at all.
int parse_quality(std::string_view text) {
  if (text.empty() || text[0] < '0' || text[0] > '1' || text.size() > 5 ||
      (text.size() > 1 && text[1] != '.'))
    return 0;
  int quality = (text[0] - '0') * 1000;
  int weight = 100;
  text.remove_prefix(std::min<gsize>(2, text.size()));
  for (char c : text) {
    if (!g_ascii_isdigit(c))
      return 0;
    quality += (c - '0') * weight;
    weight /= 10;
  }
  return std::min(quality, 1000);
}

// One of the things that an Accept header lists.
struct Item {
  std::string_view name;
  std::string_view version;  // empty if there is none
  int quality = 1000;

  explicit Item(std::string_view text) : name(take(text, ';')) {
    while (!text.empty()) {
      auto value = take(text, ';');
      auto key = take(value, '=');
      if (equals(key, "q"))
        quality = parse_quality(strip(value));
      else if (equals(key, "version"))
        version = unquote(strip(value));
    }
  }
};

// How closely a name matches.
enum class Match { none, anything, range, name };

// The quality of the name that matches most closely.
struct Preference {
  Match match = Match::none;
  int quality = 0;

  void consider(Match new_match, int new_quality) {
    if (new_match > match || (new_match == match && new_quality > quality))
      *this = {new_match, new_quality};
  }
};

}  // namespace

VekServicePrometheusFormat choose_format(const char *accept) {
  Preference openmetrics, text;
  std::string_view rest = accept ? accept : "";
  while (!rest.empty()) {
    Item item(take(rest, ','));
    if (equals(item.name, "application/openmetrics-text")) {
      if (item.version.empty() || item.version == "1.0.0")
        openmetrics.consider(Match::name, item.quality);
    } else if (equals(item.name, "text/plain")) {
      if (item.version.empty() || item.version == "0.0.4")
        text.consider(Match::name, item.quality);
    } else if (equals(item.name, "text/*")) {
      text.consider(Match::range, item.quality);
    } else if (equals(item.name, "*/*")) {
      text.consider(Match::anything, item.quality);
    }
  }
  return openmetrics.quality > 0 && openmetrics.quality >= text.quality
             ? VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS
             : VEK_SERVICE_PROMETHEUS_FORMAT_TEXT;
}

bool allows_gzip(const char *accept_encoding) {
  Preference gzip;
  std::string_view rest = accept_encoding ? accept_encoding : "";
  while (!rest.empty()) {
    Item item(take(rest, ','));
    if (equals(item.name, "gzip") || equals(item.name, "x-gzip"))
      gzip.consider(Match::name, item.quality);
    else if (item.name == "*")
      gzip.consider(Match::anything, item.quality);
  }
  return gzip.quality > 0;
}

bool matches_tag(const char *if_none_match, const char *tag) {
  std::string_view rest = if_none_match ? if_none_match : "";
  while (!rest.empty()) {
    auto item = take(rest, ',');
    if (first(item, 2) == "W/")
      item.remove_prefix(2);
    if (item == "*" || item == tag)
      return true;
  }
  return false;
}

char *get_host_name(const char *host) {
  std::string_view text = strip(host ? host : "");
  auto name = first(text, text.starts_with('[') ? text.find(']') + 1 : text.find(':'));
  auto port = text;
  port.remove_prefix(name.size());
  if (name.empty() || (!port.empty() && port[0] != ':') ||
      port.find_first_not_of("0123456789", 1) != port.npos)
    return nullptr;
  return g_ascii_strdown(name.data(), static_cast<gssize>(name.size()));
}

bool is_local_name(const char *name) {
  return g_str_equal(name, "localhost") || g_str_equal(name, "127.0.0.1") ||
         g_str_equal(name, "[::1]");
}

}  // namespace vekin::web
