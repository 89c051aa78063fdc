#pragma once

// The families that series make: which of them are shown, under which names, and in which order.

#include "prometheusfamily.hpp"
#include "prometheusreporter.h"

namespace vekin::prometheus {

// The families of a set of series. The first of those that a format would confuse are shown: the
// reporter's own series, which have no prefix, then the others in the order of their keys. Each
// that comes later is left out, and a warning names both.
struct Arrangement;

// Sorts `series`. The policy must live as long, and its prefix and declarations must not change.
Arrangement *arrangement_new(std::span<Series *const> own, GPtrArray *series, const Policy &policy);
void arrangement_free(Arrangement *arrangement);

// Change the set by one series, in a fraction of the time that arranging all takes. They return
// false, and the arrangement is of no more use, if that changes what is to become of others: one
// that was left out is to be shown, or the other way round, or a family is of several types.
bool arrangement_add(Arrangement *arrangement, const Series *series);
bool arrangement_remove(Arrangement *arrangement, const Series *series);

// The families in the order of a format.
GPtrArray *arrangement_get_families(const Arrangement *arrangement,
                                    VekServicePrometheusFormat format);

}  // namespace vekin::prometheus
