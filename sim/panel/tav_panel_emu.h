// The panel emulator: a pseudo-terminal whose slave is linked at
// $TAV_ROOT/dev/ttyPSC3, playing the panel's microcontroller.
//
// A reader thread decodes everything the program writes into a PanelModel and
// answers each handshake with the firmware version (unless silent). A sender
// thread plays key presses (key frame, a hold time, release frame) in order.
//
// Seeing the program open and close its port: right after creating the pty
// the emulator opens the slave once itself, makes it raw and closes it again.
// From then on the master reports a hang-up (POLLHUP) whenever no one holds
// the slave, so the program's open shows as the hang-up going away and its
// close as the hang-up coming back. While the slave is closed the reader
// looks again every 10 ms (poll on the stop pipe with a time-out); while it
// is open the reader blocks in poll. An open and close within 10 ms that
// writes nothing can go unseen.
//
// The line can vanish and come back (drop_port, restore_port): the master is
// closed and the link removed, later a new pty is linked at the same path.
//
// The line's pace: a pty moves bytes at once, the panel's line at 19200 baud,
// 10 bits a byte (8N1). With `baud` set, the emulator keeps the line's time
// both ways: the bytes it sends leave one byte time apart (a key frame takes
// about 5.2 ms), and the bytes the program writes reach the model one byte
// time after another from the moment they were written (or the line was
// free), so a frame is applied when its last byte would have arrived. The
// program's write itself is not slowed, as a UART's transmit buffer would
// not. A handshake answer is sent from the reader, which meanwhile (about
// 6 ms) reads nothing; that only happens when the program (re)opens the port.
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
    std::string root;             // TAV_ROOT; the link is <root>/dev/ttyPSC3
    // When not empty: play the panel on this existing line instead of a pty
    // of our own (a terminal device, or a unix stream socket such as a
    // virtual machine's UART); no link is made and `root` is not used.
    std::string device;
    bool answer_handshake = true; // false: the panel stays silent
    uint8_t fw_main = 1, fw_minor = 0, fw_build_hi = 0, fw_build_lo = 1;
    std::string log_path;   // optional frame log with timestamps
    int hold_ms = 250;      // time between a key frame and its release
    int baud = 19200;       // the line's rate, 10 bits a byte; 0: bytes move at once
    size_t frame_limit = 0; // frames kept (0: all); long interactive runs set one
    // Recording of every byte both ways (tav_panel_decode.h); empty: none.
    std::string record_path;
    // When not empty, the n-th handshake is answered with entry n (an empty
    // entry: no answer) and later ones as the last entry; the firmware
    // fields above are then not used. Replays answer as the recording did.
    std::vector<std::vector<uint8_t>> handshake_answers;
};

class PanelEmulator {
  public:
    explicit PanelEmulator(EmulatorOptions opts);
    ~PanelEmulator();
    PanelEmulator(const PanelEmulator&) = delete;
    PanelEmulator& operator=(const PanelEmulator&) = delete;

    // Creates the pty, the link and the threads. False on failure.
    bool start();
    // Stops the threads, closes the pty and removes the link. Idempotent.
    void stop();

    // Key press: key frame, the hold time, release frame. Returns when sent.
    void press(int key);
    // The same, queued; returns at once.
    void press_async(int key);
    // LOCK twice with no release between, then the release (the lock toggle).
    void lock_toggle(bool wait = true);
    // Key frame only (no release), e.g. for the LOCK toggle.
    void press_no_release(int key);
    void release();
    // Fault injection: raw bytes (malformed lengths, garbage, ...).
    void send_raw(const std::vector<uint8_t>& bytes);
    // A tap: key frame, release frame `hold` after it (from the end of the
    // key frame to the end of the release on the line). Returns when sent.
    void tap(int key, std::chrono::microseconds hold);
    // The time `bytes` bytes take on the line (0 when unpaced).
    std::chrono::microseconds line_time(size_t bytes) const;
    // The bytes in pieces cut at the given offsets, `gap` apart.
    void send_split(const std::vector<uint8_t>& bytes, const std::vector<size_t>& cuts,
                    std::chrono::milliseconds gap);
    // The line vanishes: the pty master is closed, so the program's reads see
    // a hang-up and its writes fail, and the link is removed (with
    // `break_link`: left pointing to a path that does not exist). Keys
    // pressed meanwhile are lost. False when not running or already dropped.
    bool drop_port(bool break_link = false);
    // The line comes back: a new pty linked at the same path, and the picture
    // of a freshly powered panel (blank LCD, LEDs off); counters and frames
    // are kept. False when not dropped or no pty could be made. Neither call
    // may run at the same time as start() or stop().
    bool restore_port();
    bool port_dropped() const;
    void set_answer_handshake(bool on);
    void set_firmware(uint8_t main, uint8_t minor, uint8_t build_hi, uint8_t build_lo);

    PanelState state() const;
    std::vector<Frame> frames() const;
    void clear_frames();
    size_t handshakes() const;
    size_t error_replies() const;
    size_t unknown_frames() const;
    size_t malformed_frames() const;
    // True once the program's side of the pty has been closed after having
    // been opened (the program closed the port or ended); false again while
    // it is open.
    bool peer_closed() const;
    // How often the program's side was seen to open and to close.
    size_t peer_opens() const;
    size_t peer_closes() const;
    // One line about the latest error reply, unknown or malformed frame.
    std::string last_problem() const;
    // Changes every time something new arrives (for redraws).
    uint64_t generation() const;

    // Wait until `pred` holds for the panel state; false on time-out.
    bool wait_for(const std::function<bool(const PanelState&)>& pred,
                  std::chrono::milliseconds timeout) const;
    bool wait_lcd(int line, const std::string& text, std::chrono::milliseconds timeout) const;
    bool wait_lcd_contains(int line, const std::string& text,
                           std::chrono::milliseconds timeout) const;
    bool wait_leds(uint32_t steady, std::chrono::milliseconds timeout) const;
    bool wait_handshakes(size_t n, std::chrono::milliseconds timeout) const;
    bool wait_error_replies(size_t n, std::chrono::milliseconds timeout) const;
    bool wait_peer_open(std::chrono::milliseconds timeout) const;
    bool wait_peer_closed(std::chrono::milliseconds timeout) const;
    // Wait until generation() differs from `seen`; false on time-out.
    bool wait_change(uint64_t seen, std::chrono::milliseconds timeout) const;

    // Descriptor that becomes readable when something new arrived; read it
    // empty with drain_notify(). For poll()-based front ends.
    int notify_fd() const;
    void drain_notify() const;

    // Changes when the port comes back.
    const std::string& slave_path() const;
    const std::string& link_path() const;

  private:
    struct Impl;
    Impl* impl_;
};

} // namespace tavpanel
