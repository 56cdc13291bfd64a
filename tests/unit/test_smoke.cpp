#include <gtest/gtest.h>

#include "tav_basetool.h"

TEST(Smoke, Builds) { SUCCEED(); }
