// Update progress display: the page of menu_update while the matrix core
// updates a card or a system part. The listener begins and ends it; the
// controller calls the tick about every 100 ms, which polls the library for
// the percentage and moves through start, progress, complete and error.
#include "tav_menu_update.h"

#include "tav_lcd.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

enum : uint8_t {
    kStateStart = 0,
    kStateProgress = 1,
    kStateComplete = 2,
    kStateError = 3,
};

// Ticks without a change of the percentage before giving up (about 30 s).
constexpr uint16_t kStallTicks = 299;
// Ticks the complete and error notices stay (counted past this limit).
constexpr uint16_t kNoticeTicks = 30;
// A percentage at or below this when the update ends (or falls back to it
// after completion) means the update failed.
constexpr uint8_t kFailedPct = 49;

constexpr uint8_t kFirstCardSlot = 1;
constexpr uint8_t kLastCardSlot = 17;

// The page's state: its stage (kState*), the slot being updated, the last
// percentage read, ticks the complete or error notice has stayed, and ticks
// without a change of the percentage.
struct UpdateState {
    uint8_t state;
    uint8_t slot_id;
    uint8_t percent;
    uint16_t count;
    uint16_t timeout;
};
UpdateState m_tav_update;

// Rows naming what is updated. Cards use one row with the slot number; the
// system parts have rows of their own, and the two pages map them differently.
struct SlotRows {
    uint8_t slot;
    uint8_t progress_row;
    uint8_t error_row;
};
constexpr SlotRows kSystemParts[] = {
    {18, 73, 41}, // internal network switcher / "update Linux Arm again"
    {19, 20, 42}, // Linux ARM / "update Matrix Monitor Card again"
    {20, 22, 25}, // monitoring card / no error row of its own
};
constexpr uint8_t kCardProgressRow = 23;
constexpr uint8_t kCardErrorRow = 26;
// Line 0 of the progress page for a slot the tables do not know: the
// generic "The Device will update" row rather than a stale buffer.
constexpr uint8_t kUnknownProgressRow = 17;
constexpr uint8_t kUnknownErrorRow = 25;

constexpr uint8_t kPercentRow = 24;

uint8_t read_pct(void) {
    return static_cast<uint8_t>(
        tav_matrix_get_iap_process_PCT(pmatrixDllHandle, m_tav_update.slot_id));
}

void redraw(void) {
    tav_menu_update(menu_update);
}

void leave(TAV_ENUM_MENUSTATUS target) {
    tav_menu_update(target);
}

bool is_card_slot(uint8_t slot) {
    return slot >= kFirstCardSlot && slot <= kLastCardSlot;
}

// Loads the row naming the slot (progress or error page) into displaybuf.
void load_slot_row(bool error_page) {
    uint8_t row = error_page ? kUnknownErrorRow : kUnknownProgressRow;
    if (is_card_slot(m_tav_update.slot_id)) {
        tav_menu_get_spcstr(displaybuf, error_page ? kCardErrorRow : kCardProgressRow);
        tav_menu_put_slot_number(displaybuf, m_tav_update.slot_id);
        return;
    }
    for (const SlotRows& part : kSystemParts) {
        if (part.slot == m_tav_update.slot_id) {
            row = error_page ? part.error_row : part.progress_row;
        }
    }
    tav_menu_get_spcstr(displaybuf, row);
}

// The percentage goes right-justified into the three columns before the
// first "%", or into the last three columns when the row has no "%" or no
// room before it.
void put_percent(int8_t* line, uint8_t pct) {
    int end = TAV_MENU_COLS;
    for (int p = 0; p < TAV_MENU_COLS; ++p) {
        if (line[p] == '%') {
            end = p;
            break;
        }
    }
    if (end < 3) {
        end = TAV_MENU_COLS;
    }
    tav_menu_put_number(line, end, pct, 3);
}

void send_line(uint8_t line) {
    tav_display_string(line, 0, displaybuf, TAV_MENU_COLS);
}

void tick_start(void) {
    m_tav_update.percent = read_pct();
    if (m_tav_update.percent > 100) {
        m_tav_update.percent = 0;
    }
    if (m_tav_update.percent != 0) {
        m_tav_update.timeout = 0;
        m_tav_update.state = kStateProgress;
        redraw();
    } else {
        m_tav_update.timeout++;
    }
}

void tick_progress(void) {
    const uint8_t pct = read_pct();
    if (pct != m_tav_update.percent) {
        m_tav_update.timeout = 0;
        if (pct == 100) {
            m_tav_update.state = kStateComplete;
        } else {
            m_tav_update.percent = pct;
        }
        redraw();
    } else {
        m_tav_update.timeout++;
    }
}

void tick_complete(void) {
    m_tav_update.percent = read_pct();
    if (m_tav_update.percent <= kFailedPct) {
        m_tav_update.state = kStateError;
        m_tav_update.count = 0;
    } else if (m_tav_update.count > kNoticeTicks) {
        leave(g_tav_lock ? menu_lock : menu_vid_display);
    } else {
        m_tav_update.count++;
    }
}

void tick_error(void) {
    m_tav_update.count++;
    if (m_tav_update.count > kNoticeTicks) {
        leave(menu_vid_display);
    } else {
        redraw();
    }
}

} // namespace

void tav_menu_updating_init(void) {
    m_tav_update = {kStateStart, 0, 0, 0, 0};
}

void tav_menu_updating_clear(void) {
    m_tav_update.percent = 0;
    m_tav_update.slot_id = 0;
    tav_menu_update(menu_vid_display);
}

void tav_menu_updating_set(void) {
    m_tav_update.state = kStateStart;
    m_tav_update.slot_id =
        static_cast<uint8_t>(tav_matrix_get_iap_process_slotID(pmatrixDllHandle));
    m_tav_update.count = 0;
    m_tav_update.timeout = 0;
    tav_menu_update(menu_update);
    g_tav_lcd = true;
}

void tav_menu_updating_down(void) {
    m_tav_update.percent = read_pct();
    if (m_tav_update.percent <= kFailedPct) {
        m_tav_update.count = 0;
        m_tav_update.state = kStateError;
    } else {
        m_tav_update.state = kStateComplete;
    }
    redraw();
}

void tav_menu_updating(void) {
    switch (m_tav_update.state) {
    case kStateStart:
    case kStateProgress:
        if (m_tav_update.state == kStateStart) {
            tick_start();
        } else {
            tick_progress();
        }
        if (m_tav_update.timeout > kStallTicks) {
            m_tav_update.state = kStateError;
            redraw();
        }
        break;
    case kStateComplete:
        tick_complete();
        break;
    case kStateError:
        tick_error();
        break;
    default:
        break;
    }
}

void tav_menu_updating_display(void) {
    switch (m_tav_update.state) {
    case kStateStart:
        tav_menu_spc_display(displaybuf, 17, 18);
        break;
    case kStateProgress:
        load_slot_row(false);
        send_line(0);
        tav_menu_get_spcstr(displaybuf, kPercentRow);
        put_percent(displaybuf, m_tav_update.percent);
        send_line(1);
        break;
    case kStateComplete:
        tav_menu_spc_display(displaybuf, 19, 21);
        break;
    case kStateError:
        tav_menu_get_spcstr(displaybuf, 25);
        send_line(0);
        load_slot_row(true);
        send_line(1);
        break;
    default:
        break;
    }
    tav_bdl_menu_showleds(menu_update, false);
}

uint8_t tav_menu_updating_get_state(void) {
    return m_tav_update.state;
}
