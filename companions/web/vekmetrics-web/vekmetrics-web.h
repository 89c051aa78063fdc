#pragma once

/* All of vekmetrics-web: the one header that applications include. */

#include <vekmetrics-web/server.h>
