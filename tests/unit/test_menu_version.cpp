// Version display: normalising the main version, the panel versions,
// publishing and the pages.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "service_menu_support.h"
#include "tav_menu_dispay_version.h"

namespace {

using svc::FakeTools;

struct NormCase {
    const char* name;
    std::string in;
    std::string out;
};

class VersionNormTest : public ::testing::TestWithParam<NormCase> {};

TEST_P(VersionNormTest, PadsToTwoTwoFour) {
    char src[64] = {};
    memcpy(src, GetParam().in.data(), GetParam().in.size());
    char dest[12];
    memset(dest, 0x5A, sizeof dest);
    tav_version_add_0(src, dest);
    EXPECT_EQ(std::string(dest, strnlen(dest, 11)), GetParam().out);
    EXPECT_EQ(dest[11], 0x5A); // never more than ten characters and the terminator
}

INSTANTIATE_TEST_SUITE_P(
    Texts, VersionNormTest,
    ::testing::Values(NormCase{"ToolLineEnd", "3.10.42\n", "03.10.0042"},
                      NormCase{"AllShortLineEnd", "1.2.3\n", "01.02.0003"},
                      NormCase{"AllShortNoLineEnd", "1.2.3", "01.02.0003"},
                      NormCase{"Complete", "12.34.5678", "12.34.5678"},
                      NormCase{"CompleteLineEnd", "12.34.5678\n", "12.34.5678"},
                      NormCase{"Overlong", "12.34.5678901234", "12.34.5678"},
                      NormCase{"LongFirstGroup", "123.4.5\n", "12300.0004"},
                      NormCase{"NoDots", "abc", "abc"}, NormCase{"Empty", "", ""}),
    [](const auto& info) { return std::string(info.param.name); });

class VersionTest : public svc::ServiceMenuTest {
  protected:
    void SetUp() override {
        ServiceMenuTest::SetUp();
        set_firmware(0, 0, 0);
        tav_version_clear();
        g_tav_menu = menu_display_version;
    }
    static void set_firmware(uint8_t main, uint8_t minor, uint8_t build) {
        key_hard_ver.store({main, minor, build});
    }
};

TEST_F(VersionTest, ReadsAndPublishes) {
    FakeTools::get().set_main_version("3.10.42\nsecond line\n");
    set_firmware(5, 2, 10);
    tav_version_handle();
    EXPECT_STREQ(g_tav_version.main_ver, "03.10.0042");
    EXPECT_STREQ(g_tav_version.soft_key_ver, "01.01.0001");
    EXPECT_STREQ(g_tav_version.hard_key_ver, "05.02.0010");
    EXPECT_EQ(FakeTools::get().calls(),
              (std::vector<std::string>{"tav_version quoral_version",
                                        "tav_version tav_keyboard_soft 01.01.0001",
                                        "tav_version tav_keyboard_hard 05.02.0010"}));
    EXPECT_EQ(svc::sleeps(), std::vector<uint32_t>{1000});
}

// Refreshing only reads: the tool's text, nothing printed, an overlong line,
// firmware numbers above two digits.
TEST_F(VersionTest, Refresh) {
    FakeTools::get().set_main_version("1.2.3\n");
    set_firmware(123, 255, 255);
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "01.02.0003");
    EXPECT_STREQ(g_tav_version.hard_key_ver, "99.99.0255");
    EXPECT_EQ(FakeTools::get().calls(), std::vector<std::string>{"tav_version quoral_version"});
    EXPECT_TRUE(svc::sleeps().empty());

    FakeTools::get().set_main_version(std::string(200, '9') + "\n");
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "9999999999");
    FakeTools::get().reset();
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "00.00.0000");
}

TEST_F(VersionTest, Pages) {
    FakeTools::get().set_main_version("3.10.42\n");
    set_firmware(5, 2, 10);
    tav_version_refreash();
    const std::string lines[] = {
        "      MAIN APP VERSION  : 03.10.0042  >>",
        "<<    SOFT KEY VERSION  : 01.01.0001  >>",
        "<<    HARD KEY VERSION  : 05.02.0010    ",
    };
    for (int page = 0; page < 3; ++page) {
        tav_version_display();
        EXPECT_EQ(lcd(0).substr(4, 27), "Version Information Display");
        EXPECT_EQ(lcd(1), lines[page]);
        svc::keys("R", tav_version_sec);
    }
    EXPECT_EQ(tav_version_get_sec(), 2); // RIGHT on the last page stays
    EXPECT_EQ(g_tav_menu, menu_display_version);
}

TEST_F(VersionTest, Keys) {
    struct Case {
        const char* keys; // RIGHTs to reach the page, then the key
        uint8_t page_after;
        TAV_ENUM_MENUSTATUS to;
    };
    const Case cases[] = {
        {"L", 0, menu_display_version},  {"RL", 0, menu_display_version},
        {"RR", 2, menu_display_version}, {"RRR", 2, menu_display_version},
        {"RM", 1, menu_vid_display},     {"RB", 1, menu_vid_display},
        {"RK", 1, menu_vid_display},     {"RD", 1, menu_reset},
        {"RT", 1, menu_display_version}, {"R3", 1, menu_display_version},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.keys);
        tav_version_clear();
        g_tav_menu = menu_display_version;
        svc::keys(c.keys, tav_version_sec);
        EXPECT_EQ(tav_version_get_sec(), c.page_after);
        EXPECT_EQ(g_tav_menu, c.to);
    }
}

} // namespace
