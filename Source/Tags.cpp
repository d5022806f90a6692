// The one walker over tag lists, and what is built on it.
#define KQ_MODULE "Source/Tags"
#include "kq/tags.h"

#include "Source/Alloc.h"

TagItem* NextTagItem(TagItem** cursor) {
    if (!cursor || !*cursor) return nullptr;
    TagItem* p = *cursor;
    for (;;) {
        switch (p->Tag) {
        case KQTAG_End: *cursor = p; return nullptr;
        case KQTAG_Ignore: ++p; break;
        case KQTAG_Skip:
            for (i32 left = i16(u16(p->Data)); left >= 0; --left) {
                ++p;
                if (p->Tag == KQTAG_End) {
                    *cursor = p;
                    return nullptr;
                }
            }
            break;
        case KQTAG_More: {
            TagItem* chained = reinterpret_cast<TagItem*>(p->Data);
            if (!chained) {
                *cursor = p + 1;
                return p;
            }
            if (chained->Tag == KQTAG_End) {
                *cursor = chained;
                return nullptr;
            }
            *cursor = chained + 1;
            return chained;
        }
        default: *cursor = p + 1; return p;
        }
    }
}

TagItem* FindTagItem(u32 tag, TagItem* list) {
    TagItem* cursor = list;
    while (TagItem* item = NextTagItem(&cursor))
        if (item->Tag == tag) return item;
    return nullptr;
}

TagItem* CloneTagItems(TagItem* list) {
    size_t count = 0;
    TagItem* cursor = list;
    while (NextTagItem(&cursor)) ++count;
    TagItem* clone = static_cast<TagItem*>(KQ_ALLOC((count + 1) * sizeof(TagItem), KQMEM_Clear));
    if (!clone) return nullptr;
    cursor = list;
    for (size_t i = 0; i < count; ++i) clone[i] = *NextTagItem(&cursor);
    return clone;
}
