#pragma once

/* The header that applications include. */

#include <vekmetrics-service/drain.h>
#include <vekmetrics-service/graphitereporter.h>
#include <vekmetrics-service/prometheusreporter.h>
#include <vekmetrics-service/reporting.h>
#include <vekmetrics-service/session.h>
