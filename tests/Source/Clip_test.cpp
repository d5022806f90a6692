#include "kq/clip.h"

#include "support/Fixture.h"

namespace {

using Clip = kqtest::KQTest;

TEST_F(Clip, ScratchNameHoldsClipAndNumber) {
    SetScratchDirKQ(Folder().c_str());
    KQClip* clip = NewClipKQ();
    clip->clipId = 12;
    std::string name = Make_TempName(clip, -3, 0);
    EXPECT_EQ(name.substr(name.size() - 12), "00120000.03V");
    FreeClipKQ(clip);
    SetScratchDirKQ(nullptr);
}

}   // namespace
