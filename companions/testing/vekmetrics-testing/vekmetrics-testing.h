#pragma once

/* All of vekmetrics-testing: the one header that test programs include. The clock is a library of
 * its own, with <vekmetrics-testing/clock.h>. */

#include <vekmetrics-testing/checks.h>
#include <vekmetrics-testing/defaultregistry.h>
#include <vekmetrics-testing/recorder.h>
