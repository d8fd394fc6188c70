// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/picture_size.h"

#include <gtest/gtest.h>

namespace nimbra::cli {
namespace {

const PictureSize kFull{960, 540};

TEST(PictureSize, Size_PixelsOrShare) {
    EXPECT_EQ(parseSize("320x200", kFull), (PictureSize{320, 200}));
    EXPECT_EQ(parseSize("50%", kFull), (PictureSize{480, 270}));
    EXPECT_EQ(parseSize("0.01%", kFull), (PictureSize{1, 1}));
    for (const char* bad : {"", "320", "320x", "x200", "0x10", "-5x5", "3.5x2", "70000x1", "0%",
                            "320x200x", "nan%", "1e9%", "50%x50%"})
        EXPECT_THROW(parseSize(bad, kFull), PictureSizeError) << bad;
}

TEST(PictureSize, Crop_PixelsOrShareCutToThePicture) {
    EXPECT_EQ(parseCrop("10,20,30,40", kFull), (PictureCrop{10, 20, 30, 40}));
    EXPECT_EQ(parseCrop("25%,0%,75%,100%", kFull), (PictureCrop{240, 0, 720, 540}));
    EXPECT_EQ(parseCrop("-5,-5,5000,5000", kFull), (PictureCrop{0, 0, 960, 540}));
    for (const char* bad : {"", "1,2,3", "1,2,3,4,5", "5,5,5,9", "960,0,970,10", "a,b,c,d"})
        EXPECT_THROW(parseCrop(bad, kFull), PictureSizeError) << bad;
}

}  // namespace
}  // namespace nimbra::cli
