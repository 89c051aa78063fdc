#pragma once

// Lists of reporters. A list is never changed, but replaced, so that a pass can keep the one with
// which it began.

#include <vekmetrics/reporter.h>

namespace vekin {

GPtrArray *reporter_list_new();

// A new list with one more reporter at its end, of which it takes a reference.
GPtrArray *reporter_list_with(GPtrArray *list, VekMetricReporter *reporter);

// A new list without one of the reporters.
GPtrArray *reporter_list_without(GPtrArray *list, VekMetricReporter *reporter);

// Calls an operation of each of the reporters that has it; the first argument is the reporter.
template <typename Operation, typename... Arguments>
void hand_on(GPtrArray *list, Operation VekMetricReporterInterface::*operation,
             Arguments... arguments) {
  for (guint i = 0; i < list->len; i++) {
    auto *reporter = static_cast<VekMetricReporter *>(list->pdata[i]);
    if (auto function = VEK_METRIC_REPORTER_GET_IFACE(reporter)->*operation)
      function(reporter, arguments...);
  }
}

}  // namespace vekin
