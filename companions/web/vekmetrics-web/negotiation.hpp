#pragma once

// What a request asks for, from its headers; each may be NULL.

#include <glib.h>

#include <vekmetrics-service/prometheusreporter.h>

namespace vekin::web {

// The format that `Accept` prefers: OpenMetrics only if it is named and the text format is not
// preferred to it. Whoever accepts neither gets the text format all the same.
VekServicePrometheusFormat choose_format(const char *accept);

// Whether `Accept-Encoding` allows gzip.
bool allows_gzip(const char *accept_encoding);

// Whether `If-None-Match` names an entity tag.
bool matches_tag(const char *if_none_match, const char *tag);

// The name of a `Host`, without its port and in lower case; NULL if it is none.
char *get_host_name(const char *host);

// Whether a name stands for this machine alone, whatever a name server says.
bool is_local_name(const char *name);

}  // namespace vekin::web
