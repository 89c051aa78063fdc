#pragma once

#include "served.h"

/* Asks a server for the last pass, as Prometheus does, and for those that it keeps, as the page
 * does. Asserts that they are complete, once more than so many passes have been. */
void scrape(Served *served, guint n_passes);
