// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tessra/renderer.h"

namespace TessUtils {
namespace {

TEST(AdjustRelativePath, PutsTheScenesFolderBeforeRelativePathsOnly) {
    EXPECT_EQ(adjustRelativePath(nullptr, "smoke.vdb"), "smoke.vdb");
    for (const char* folder : {"/scenes/fire", "/scenes/fire/"}) {
        setSceneFolder(folder);
        EXPECT_EQ(adjustRelativePath(nullptr, "smoke.vdb"), "/scenes/fire/smoke.vdb");
        EXPECT_EQ(adjustRelativePath(nullptr, "../a:b.vdb"), "/scenes/fire/../a:b.vdb");
        for (const char* path : {"", "/x/a.vdb", "\\\\server\\a.vdb", "//server/a.vdb", "C:\\a.vdb",
                                 "d:/a.vdb", "$env(CACHES)/a.vdb"})
            EXPECT_EQ(adjustRelativePath(nullptr, path), path);
    }
    setSceneFolder("");
    EXPECT_EQ(remapPath(TessraSequenceData(), "a/b.vdb"), "a/b.vdb");
}

}  // namespace
}  // namespace TessUtils
