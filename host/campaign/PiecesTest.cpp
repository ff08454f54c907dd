#include "host/campaign/Pieces.h"

#include <gtest/gtest.h>

#include <array>

namespace campaign {
namespace {

using Bytes = std::vector<std::uint8_t>;

const std::array<Bytes, 2> kImages{Bytes{1, 2, 3, 4, 5, 6}, Bytes{7, 8, 9, 10}};

TEST(Pieces, AWholeImageIsOne) {
    EXPECT_EQ(FewestPieces(kImages[0], kImages), 1U);
    EXPECT_EQ(FewestPieces({}, kImages), 0U);
}

TEST(Pieces, CountsImagesAndWhatIsErased) {
    EXPECT_EQ(FewestPieces(Bytes{7, 8, 0xFF, 0xFF, 5, 6}, kImages), 3U);
    EXPECT_EQ(FewestPieces(Bytes{1, 2, 9, 10, 0xFF}, kImages), 3U);
}

TEST(Pieces, WhatIsAtAnotherPlaceIsNoPieceOfAnImage) {
    EXPECT_EQ(FewestPieces(Bytes{2, 3, 4, 5}, kImages), 4U);
    EXPECT_EQ(FewestPieces(Bytes{1, 2, 0, 4}, kImages), 3U);
}

}  // namespace
}  // namespace campaign
