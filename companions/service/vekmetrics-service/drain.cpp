#include "drain.h"

#include "common/internal.hpp"

G_DEFINE_INTERFACE(VekServiceDrain, vek_service_drain, G_TYPE_OBJECT)

static void vek_service_drain_default_init(VekServiceDrainInterface *) {}

gboolean vek_service_drain_is_busy(VekServiceDrain *drain) {
  vek_return_val_if_fail(VEK_SERVICE_IS_DRAIN(drain), FALSE);

  return VEK_SERVICE_DRAIN_GET_IFACE(drain)->is_busy(drain);
}
