// A stranger's program: starts the library, uses a list, a bitmap and memory, and cleans up.
#include <KQLib.h>

#include <cstdio>

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    InitFormatModulesKQ(nullptr);
    List names;
    NewList(&names);
    Add_Node(&names, "beta");
    Add_Node(&names, "Alpha");
    Sort_List(&names);
    KQBitmap* bitmap = AllocBitmapKQ(4, 4, 32);
    FillBitmapKQ(bitmap, 0xFF102030);
    std::printf("%s %02x%02x%02x%02x\n", names.Head->Name, bitmap->data[0], bitmap->data[1], bitmap->data[2],
                bitmap->data[3]);
    FreeBitmapKQ(bitmap);
    Free_List(&names);
    CleanUpKQ();
    return 0;
}
