#pragma once

/* The header that applications include. */

#include <vekmetrics-web/server.h>
