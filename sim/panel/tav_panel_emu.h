// The panel emulator: a pseudo-terminal whose slave is linked at
// $TAV_ROOT/dev/ttyPSC3, playing the panel's microcontroller.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tav_panel_model.h"

namespace tavpanel {

struct EmulatorOptions {
    std::string root;              // TAV_ROOT; the link is <root>/dev/ttyPSC3
    bool answer_handshake = true;  // false: the panel stays silent
    uint8_t fw_main = 1, fw_minor = 0, fw_build_hi = 0, fw_build_lo = 1;
    std::string log_path;          // optional frame log with timestamps
};

class PanelEmulator {
  public:
    explicit PanelEmulator(EmulatorOptions opts);
    ~PanelEmulator();
    PanelEmulator(const PanelEmulator&) = delete;
    PanelEmulator& operator=(const PanelEmulator&) = delete;

    // Creates the pty, the link and the reader thread. False on failure.
    bool start();
    void stop();

    // Key press: key frame, then release frame.
    void press(int key);
    // Key frame only (no release), e.g. for the LOCK toggle.
    void press_no_release(int key);
    void release();
    // Fault injection: raw bytes (split frames, malformed lengths, ...).
    void send_raw(const std::vector<uint8_t>& bytes);
    void set_answer_handshake(bool on);
    void set_firmware(uint8_t main, uint8_t minor, uint8_t build_hi, uint8_t build_lo);

    PanelState state() const;
    std::vector<Frame> frames() const;
    void clear_frames();
    size_t handshakes() const;
    size_t error_replies() const;
    // True once the program's side of the pty has been closed after having
    // been opened (the program closed the port or ended).
    bool peer_closed() const;

    // Wait until `pred` holds for the panel state; false on time-out.
    bool wait_for(const std::function<bool(const PanelState&)>& pred,
                  std::chrono::milliseconds timeout) const;
    bool wait_lcd(int line, const std::string& text, std::chrono::milliseconds timeout) const;
    bool wait_lcd_contains(int line, const std::string& text,
                           std::chrono::milliseconds timeout) const;
    bool wait_leds(uint32_t steady, std::chrono::milliseconds timeout) const;

    const std::string& slave_path() const;

  private:
    struct Impl;
    Impl* impl_;
};

} // namespace tavpanel
