#pragma once

/* A line on standard error that tells how far the run has come, if that is a terminal. */

#include "figures.h"

/* Shows the line and keeps it up to date, on the main loop. */
void progress_start(Figures *figures);

/* Takes the line away before something else is printed; it comes back by itself. */
void progress_hide(void);

/* Takes the line away for good. */
void progress_stop(void);
