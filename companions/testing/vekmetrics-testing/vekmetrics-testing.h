#pragma once

/* The header that test programs include. The clock is a separate library, with the header
 * <vekmetrics-testing/clock.h>. */

#include <vekmetrics-testing/checks.h>
#include <vekmetrics-testing/defaultregistry.h>
#include <vekmetrics-testing/recorder.h>
