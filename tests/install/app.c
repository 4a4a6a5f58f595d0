/* The smallest camera application: it switches the service to manual focus through the
   installed library and reads the mode back. Compiled as strict C with warnings as errors,
   so it also shows that the installed headers serve a C program. */
#include <stdio.h>

#include "zoomaf/app_pdaf.h"

int main(void) {
    if (AppSetMode(MANUAL_FOCUS_MODE) != 0) return 1;
    const int32_t mode = AppGetFocusMode();
    printf("focus mode %d\n", (int)mode);
    return mode == MANUAL_FOCUS_MODE ? 0 : 1;
}
