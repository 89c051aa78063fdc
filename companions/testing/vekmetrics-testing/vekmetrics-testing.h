#pragma once

/* All of vekmetrics-testing: the one header that test programs include. */

#include <vekmetrics-testing/checks.h>
#include <vekmetrics-testing/defaultregistry.h>
#include <vekmetrics-testing/recorder.h>
