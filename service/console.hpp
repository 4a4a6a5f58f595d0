// The console's pieces that read a given stream, so that tests can script them, and its
// refocus, which the scenario runner replays. Not part of the exported interface.
#pragma once

#include <cstdint>
#include <cstdio>

namespace zoomaf {

// Serves the menu on in until the end of input (a read that meets it ends the menu, also in
// the middle of a choice: nothing half-entered is acted on).
void console_menu(FILE* in);

// The menu's choice 2: the day focus and the night search start afresh on the next pass.
void focus_once_more();

// TvkTestSetAreamode reading its point from in.
int32_t tvk_set_area_mode(FILE* in);

}  // namespace zoomaf
