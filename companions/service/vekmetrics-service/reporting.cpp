#include "reporting.h"

#include "kinds.hpp"

VekMetric *vek_service_get_reporting_metric(void) {
  return vekin::get_reporting_metric();
}
