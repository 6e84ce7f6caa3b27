#include <gtest/gtest.h>

#include "kevra/kevra.h"

using namespace kevra;

TEST(ProcessingBase, PitchFollowsDepth)
{
    EXPECT_EQ(CTraitementImgBase(8).Pitch(1), 4);
    EXPECT_EQ(CTraitementImgBase(24).Pitch(3), 12);
    EXPECT_EQ(CTraitementImgBase(16).Pitch(2), 4);
    EXPECT_EQ(CTraitementImgBase().GetBpp(), 24);
}
