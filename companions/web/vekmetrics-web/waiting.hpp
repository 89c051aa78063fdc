#pragma once

// Requests that wait for their answer. In each of its iterations the main loop does a slice of work
// for one of them: a crowd of clients does not delay what else the program does.

#include <libsoup/soup.h>
#include <vekmetrics-service/prometheusreporter.h>

#include "page.hpp"

namespace vekin::web {

struct Request {
  SoupServerMessage *message;
  VekServicePrometheusFormat format;
  bool is_compressed;
  Page *page;  // owned; NULL until its text is written
};

// Does a slice of the work for a request. Returns whether it is answered.
using Work = bool (*)(Request &request, gpointer data);

struct Waiting;

Waiting *waiting_new(Work work, gpointer data);

// Answers those who still wait that there is nothing.
void waiting_free(Waiting *waiting);

// Pauses a message until it is answered: with a page or, if that is NULL, with the text in a
// format.
void waiting_add(Waiting *waiting, SoupServerMessage *message, VekServicePrometheusFormat format,
                 Page *page, bool is_compressed);

}  // namespace vekin::web
