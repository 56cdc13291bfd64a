// Captures what the program sends to the panel in unit tests: a pseudo-
// terminal linked at $TAV_ROOT/dev/ttyPSC3 (TAV_ROOT is a temporary
// directory), opened through the program's own tav_inituart, with every byte
// the program writes decoded by the panel model.
#pragma once

#include <string>
#include <vector>

#include "tav_panel_model.h"

namespace tavtest {

class PanelCapture {
  public:
    // The process-wide capture; opens the port on first use.
    static PanelCapture& get();
    // Reads everything the program has written so far into the model.
    void drain();
    // Drains, then returns the panel picture / the frames since the last clear.
    const tavpanel::PanelState& state();
    std::vector<tavpanel::Frame> frames();
    // Drains and forgets the frames seen so far (the picture stays).
    void clear();
    const std::string& root() const { return root_; }
    int master_fd() const { return master_; }

  private:
    PanelCapture();
    std::string root_;
    int master_ = -1;
    tavpanel::PanelModel model_;
};

// Frames as hex strings, for readable expectations.
std::vector<std::string> hex_frames(const std::vector<tavpanel::Frame>& frames);

} // namespace tavtest
