#pragma once

/* The only header that applications include. */

#include <vekmetrics/carbonreporter.h>
#include <vekmetrics/consolereporter.h>
#include <vekmetrics/counter.h>
#include <vekmetrics/dimension.h>
#include <vekmetrics/fixedsizestore.h>
#include <vekmetrics/fixedtimestore.h>
#include <vekmetrics/gauge.h>
#include <vekmetrics/histogram.h>
#include <vekmetrics/jsonlogreporter.h>
#include <vekmetrics/logreporter.h>
#include <vekmetrics/meter.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/metricdatum.h>
#include <vekmetrics/metricutils.h>
#include <vekmetrics/rangestore.h>
#include <vekmetrics/registry.h>
#include <vekmetrics/reporter.h>
#include <vekmetrics/snapshot.h>
#include <vekmetrics/store.h>
#include <vekmetrics/timeline.h>
#include <vekmetrics/timelinereporter.h>
#include <vekmetrics/timer.h>
#include <vekmetrics/version.h>
