// The update display's state machine and pages, and the card notices' pages.
#include <gtest/gtest.h>

#include "listener_support.h"

using namespace irqtest;

namespace {

class UpdateTest : public ListenerTest {
  protected:
    void SetUp() override {
        ListenerTest::SetUp();
        set_pct(0);
        fakematrix::state().iap_slot = 5;
        tav_menu_updating_set();
        g_tav_menu_event = EVENT_NOMAL;
    }
    static void set_pct(int32_t pct) { fakematrix::state().iap_pct = pct; }
    // One tick; whether it asked for a redisplay.
    static bool tick() {
        g_tav_menu_event = EVENT_NOMAL;
        tav_menu_updating();
        return redraw_requested();
    }
    // `n` ticks in a row without a redisplay.
    static void quiet_ticks(int n) {
        for (int i = 1; i <= n; ++i) {
            ASSERT_FALSE(tick()) << i;
        }
    }
    // Ticks until the menu leaves menu_update (at most `limit`); their count.
    static int ticks_until_left(int limit) {
        for (int n = 1; n <= limit; ++n) {
            tick();
            if (g_tav_menu != menu_update) {
                return n;
            }
        }
        return -1;
    }
};

TEST_F(UpdateTest, BeginShowsStartPage) {
    EXPECT_EQ(g_tav_menu, menu_update);
    EXPECT_TRUE(g_tav_lcd);
    tav_menu_updating_display();
    EXPECT_EQ(lcd(0), row(17));
    EXPECT_EQ(lcd(1), row(18));
    EXPECT_EQ(tavtest::PanelCapture::get().state().led_steady, (1u << 31) | (1u << 16));
}

// No progress for 300 ticks: error notice, redrawn every tick for 30 ticks,
// then the video page even when locked.
TEST_F(UpdateTest, StalledStartGivesErrorThenVideo) {
    g_tav_lock = true;
    quiet_ticks(299);
    EXPECT_EQ(tav_menu_updating_get_state(), 0);
    EXPECT_TRUE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 3);
    tav_menu_updating_display();
    EXPECT_EQ(lcd(0), row(25));
    EXPECT_EQ(lcd(1), row_with(26, 27, "05"));
    for (int n = 1; n <= 30; ++n) {
        ASSERT_TRUE(tick()) << n;
        ASSERT_EQ(g_tav_menu, menu_update);
    }
    tick();
    EXPECT_EQ(g_tav_menu, menu_vid_display);
}

TEST_F(UpdateTest, StalledProgressGivesError) {
    set_pct(40);
    EXPECT_TRUE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 1);
    quiet_ticks(299);
    set_pct(41); // a change restarts the count
    EXPECT_TRUE(tick());
    quiet_ticks(299);
    EXPECT_TRUE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 3);

    // First reading 100: drawn once with 100, then stalled likewise.
    tav_menu_updating_set();
    set_pct(100);
    EXPECT_TRUE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 1);
    tav_menu_updating_display();
    EXPECT_EQ(lcd(1), row_with(24, 30, "100"));
    quiet_ticks(299);
    EXPECT_TRUE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 3);
}

// 60 then straight to 100: the completion notice stays 32 ticks, then the
// video page, or the lock page when locked.
TEST_F(UpdateTest, CompleteReturnsAfter32Ticks) {
    for (bool locked : {false, true}) {
        SCOPED_TRACE(locked);
        g_tav_lock = locked;
        tav_menu_updating_set();
        set_pct(60);
        EXPECT_TRUE(tick());
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), row_with(23, 12, "05"));
        EXPECT_EQ(lcd(1), row_with(24, 30, " 60"));
        set_pct(100);
        EXPECT_TRUE(tick());
        EXPECT_EQ(tav_menu_updating_get_state(), 2);
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), row(19));
        EXPECT_EQ(lcd(1), row(21));
        EXPECT_EQ(ticks_until_left(100), 32);
        EXPECT_EQ(g_tav_menu, locked ? menu_lock : menu_vid_display);
    }
}

// The completion notice is on and the percentage falls to 30: error on that
// tick (without a redraw), drawn from the next one.
TEST_F(UpdateTest, CompleteThenLowPercentGivesError) {
    set_pct(100);
    tick();
    tick(); // 0 -> 1 on the first, 1 shows no change on the second
    tav_menu_updating_down();
    ASSERT_EQ(tav_menu_updating_get_state(), 2);
    tick();
    set_pct(30);
    EXPECT_FALSE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 3);
    EXPECT_TRUE(tick());
    EXPECT_EQ(ticks_until_left(100), 30);
}

TEST_F(UpdateTest, AboveHundredOnFirstTickCountsAsZero) {
    for (int32_t pct : {101, 255, 0x164 /* low 8 bits 100 */}) {
        SCOPED_TRACE(pct);
        tav_menu_updating_set();
        set_pct(pct);
        const bool starts = (pct & 0xFF) <= 100;
        EXPECT_EQ(tick(), starts);
        EXPECT_EQ(tav_menu_updating_get_state(), starts ? 1 : 0);
    }
}

// Line 0 of the progress page and line 1 of the error page by slot.
struct SlotPageCase {
    int slot;
    std::string progress_top;
    std::string error_bottom;
};

TEST_F(UpdateTest, SlotRowsDifferBetweenPages) {
    const SlotPageCase cases[] = {
        {1, row_with(23, 12, "01"), row_with(26, 27, "01")},
        {17, row_with(23, 12, "17"), row_with(26, 27, "17")},
        {18, row(73), row(41)},
        {19, row(20), row(42)},
        {20, row(22), row(25)},
        {0, row(17), row(25)},
        {21, row(17), row(25)},
        {255, row(17), row(25)},
    };
    for (const SlotPageCase& c : cases) {
        SCOPED_TRACE(c.slot);
        fakematrix::state().iap_slot = c.slot;
        tav_menu_updating_set();
        set_pct(42);
        tick();
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), c.progress_top);
        EXPECT_EQ(lcd(1), row_with(24, 30, " 42"));
        set_pct(10);
        tav_menu_updating_down();
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), row(25));
        EXPECT_EQ(lcd(1), c.error_bottom);
    }
}

// Configured rows without a place for the number are shown as configured,
// and nothing is written past column 39.
struct PatchCase {
    const char* name;
    int row;
    std::string text;
    std::string shown; // line 1 of the progress page at 8 %, or line 0 for row 23
};

TEST_F(UpdateTest, RowsWithoutPlaceholders) {
    const PatchCase cases[] = {
        {"no percent sign", 24, "Progress", "Progress" + std::string(29, ' ') + "  8"},
        {"percent at column 1", 24, "x% done", "x% done" + std::string(30, ' ') + "  8"},
        {"percent at column 3", 24, "ABC% done", "  8% done" + std::string(31, ' ')},
        {"percent at the end", 24, std::string(39, '.') + "%", std::string(36, '.') + "  8%"},
        {"no slot pair", 23, "Card is Updating", "Card is Updating" + std::string(24, ' ')},
        {"single X at the end", 23, std::string(39, ' ') + "X", std::string(39, ' ') + "X"},
        {"lower-case pair", 23, "slot xx", "slot 05" + std::string(33, ' ')},
    };
    for (const PatchCase& c : cases) {
        SCOPED_TRACE(c.name);
        tav_menu_strcfg_defaults();
        set_row(c.row, c.text);
        tav_menu_updating_set();
        set_pct(8);
        tick();
        displaybuf[40] = 0x55;
        tav_menu_updating_display();
        EXPECT_EQ(displaybuf[40], 0x55);
        EXPECT_EQ(lcd(c.row == 24 ? 1 : 0), c.shown);
    }
}

using CardPlugTest = ListenerTest;

struct NoticeCase {
    const char* name;
    uint8_t status;
    uint8_t slot;
    std::string top;
    std::string bottom;
};

TEST_F(CardPlugTest, NoticePages) {
    const NoticeCase cases[] = {
        {"inserted slot 3", 1, 3, row_with(13, 13, "03"), row(14)},
        {"pulled slot 12", 2, 12, row_with(15, 16, "12"), row(4)},
        {"slot 99", 1, 99, row_with(13, 13, "99"), row(14)},
        {"slot 100", 2, 100, row_with(15, 16, "--"), row(4)},
    };
    for (const NoticeCase& c : cases) {
        SCOPED_TRACE(c.name);
        for (bool locked : {false, true}) {
            g_tav_lock = locked;
            tav_menu_card_plug_set_status(c.slot, c.status);
            EXPECT_EQ(g_tav_menu, menu_hot_plug);
            tav_menu_card_plug_display();
            EXPECT_EQ(lcd(0), c.top);
            EXPECT_EQ(lcd(1), c.bottom);
            const uint32_t leds = locked ? (1u << 31) | (1u << 16)
                                         : (1u << 31) | (1u << 10) | (1u << 11) | (1u << 15);
            EXPECT_EQ(tavtest::PanelCapture::get().state().led_steady, leds);
        }
    }
}

TEST_F(CardPlugTest, RowWithoutPairShownAsConfigured) {
    set_row(13, "A card came in");
    set_row(15, std::string(39, '-') + "X");
    tav_menu_card_plug_set_status(7, 1);
    displaybuf[40] = 0x55;
    tav_menu_card_plug_display();
    EXPECT_EQ(lcd(0), row(13));
    tav_menu_card_plug_set_status(7, 2);
    tav_menu_card_plug_display();
    EXPECT_EQ(lcd(0), row(15));
    EXPECT_EQ(displaybuf[40], 0x55);
}

// No notice to show, or the notice cleared: home, or the lock page.
TEST_F(CardPlugTest, NoNoticeOrClearedReturnsHomeOrLock) {
    for (uint8_t status : {0, 3}) {
        g_tav_menu = menu_hot_plug;
        tav_menu_card_plug_set_status(4, status);
        g_tav_menu_event = EVENT_NOMAL;
        tav_menu_card_plug_display();
        EXPECT_EQ(g_tav_menu, menu_vid_display);
        EXPECT_TRUE(redraw_requested());
    }
    for (bool locked : {false, true}) {
        g_tav_lock = locked;
        tav_menu_card_plug_set_status(4, 1);
        tav_menu_card_plug_clear();
        EXPECT_EQ(tav_menu_card_plug_get_status(), 0);
        EXPECT_EQ(g_tav_menu, locked ? menu_lock : menu_vid_display);
    }
}

} // namespace
