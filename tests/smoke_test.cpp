#include <gtest/gtest.h>
#include "halftone/halftone.h"
TEST(Smoke, Version) { EXPECT_STRNE(halftone_version(), ""); }
