// The bench program's start-up, up to the console: the order of the board, shared by
// zoomaf-bench and the scenario runner, which replays scenes on the service started the
// same way.
#pragma once

namespace zoomaf::bench {

// Sensor identity, 500 ms, day, versions, laser calibration, lens table, laser calibration
// again, PD and motor calibration, laser channel. False when the lens table could not be
// read (the service said why).
bool start_up_service();

}  // namespace zoomaf::bench
