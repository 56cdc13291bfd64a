// Captures what the program sends to the panel in unit tests: a pseudo-
// terminal linked at $TAV_ROOT/dev/ttyPSC3 (TAV_ROOT is a temporary
// directory, removed at exit; the device tools first on PATH), opened through the program's own
// tav_inituart, with every byte the program writes decoded by the panel model.
#pragma once

#include <string>
#include <vector>

#include "tav_panel_model.h"

namespace tavtest {

class PanelCapture {
  public:
    // The process-wide capture; opens the port on first use.
    static PanelCapture& get();
    ~PanelCapture();
    // Reads everything the program has written so far into the model: a
    // marker written behind it on the same terminal tells where it ends.
    void drain();
    // Drains, then returns the panel picture / the frames since the last clear.
    const tavpanel::PanelState& state();
    std::vector<tavpanel::Frame> frames();
    // Drains and forgets the frames seen so far (the picture stays).
    void clear();
    // The frames since the last clear as hex strings, then clears.
    std::vector<std::string> take_hex();
    // Bytes outside any frame seen so far (the program sends none).
    size_t stray_bytes() {
        drain();
        return model_.garbage_bytes();
    }
    const std::string& root() const { return root_; }

  private:
    PanelCapture();
    std::string root_;
    int master_ = -1;
    int marker_fd_ = -1; // a second opening of the terminal, for the marker
    std::string pending_;
    tavpanel::PanelModel model_;
};

// Reopens the program's panel port on the capture's terminal if it is closed.
void reopen_port();

} // namespace tavtest
