/* The auto-focus loop and the bench console.

   The loop is the one worker thread that focuses the lens: each pass it takes the service
   lock, notices the changes of zoom multiple, focus mode, day/night and free point made by
   the control calls since the last pass, does one focus step of the current mode (day:
   phase detection on the 48 centre windows or the free window; night: one step of the
   contrast search; manual: the requested position), releases the lock and sleeps.

   The console is the bench's text menu on standard input: it initialises the motors,
   starts the loop on a thread of its own and serves the menu until the end of input. */
#ifndef ZOOMAF_AF_LOOP_H
#define ZOOMAF_AF_LOOP_H

#include <stdint.h>
#include <stdio.h>

#include "zoomaf/export.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- The auto-focus loop (service/af_loop_entries.cpp) ---------------------------------- */

/* The console's variant: never returns. Night steps every 33 ms (one frame), day steps
   every current_shockperiod ms. */
ZOOMAF_API int32_t AFByUsingAssistInfo(void);
/* The application's variant: pauses while a zoom runs (zoom_running_flag), sleeps
   current_shockperiod ms after every pass and returns 0 once StopAFByUsingAssistInfo asked
   it to stop. */
ZOOMAF_API int32_t RunAFByUsingAssistInfo(void);
/* Asks the Run variant to stop and waits up to 20 x 200 ms for it to acknowledge: 1 at once
   when a stop is already pending, else the length of its closing message. */
ZOOMAF_API int32_t StopAFByUsingAssistInfo(void);

/* ---- The test console (service/console.cpp, service/console_helpers.cpp) ----------------- */

/* Initialises the motors at x3.5, starts AFByUsingAssistInfo on a thread and serves the
   menu on standard input. At the end of input it lets the focus in hand finish (10 s of
   board time at most), stops the loop between two passes, saves a changed self-study store
   and ends the process with status 0. */
ZOOMAF_API void InterfaceTest(void);
/* Reads characters until a line feed or the end of the file. */
ZOOMAF_API void safe_flush(FILE* stream);
/* Reads a free-mode point from standard input, holding the service lock while it asks:
   within 3840 x 2160 it switches to free mode at that point and returns 0; otherwise it
   prints why, pauses 2 s and returns -2. */
ZOOMAF_API int32_t TvkTestSetAreamode(void);
/* Prints the milliseconds of the wall clock since its previous call (since 0 at the
   first). 0. */
ZOOMAF_API int32_t time_interval_test(void);

ZOOMAF_EXTERN_C_END

#endif
