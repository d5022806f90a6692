// Tag lists: optional arguments as an array of tag and value pairs, ended by a pair whose Tag is 0.
//
// Tags below 4 steer the walk over the list; all other numbers belong to the call that reads them. Almost every call
// with a tag list has a twin that takes the pairs as trailing arguments, ended by a 0 tag:
//
//     OpenClipKQ("shot.flm", KQTAG_CLIP_NOASK, 0, KQTAG_CLIP_TRACK, 2, 0);
//
// The twin is an inline template that gathers the pairs in an array on the stack, so the arguments are checked by the
// compiler: whole numbers, enumerations and pointers are taken, a floating-point number is refused (calls that want
// one take its address).
#pragma once

#include <array>
#include <concepts>
#include <type_traits>

#include "kq/types.h"

struct TagItem {
    u32 Tag;     // tag number, or one of the control values
    uptr Data;   // value or pointer, meaning set by the tag
};

// Control values.
inline constexpr u32 KQTAG_End = 0;      // end of the list
inline constexpr u32 KQTAG_Ignore = 1;   // this pair is passed over
inline constexpr u32 KQTAG_Skip = 2;     // this pair and the next Data pairs are passed over (low 16 bits, signed)
inline constexpr u32 KQTAG_More = 3;     // Data points to another list, where the walk goes on

// The next pair of user interest; moves `*cursor` behind it. Null at the end, or for a null cursor or list. A chained
// list must not begin with a control value other than KQTAG_End, and a skip count must not be negative.
KQ_API TagItem* NextTagItem(TagItem** cursor);

// The first pair with this tag as NextTagItem sees the list, or null. A null list returns null.
KQ_API TagItem* FindTagItem(u32 tag, TagItem* list);

// A flat copy of what NextTagItem gives, ended by a zero pair; freed by the caller with FreeMemoryKQ. A null list
// gives a copy that holds the end pair alone. Null only when out of memory.
KQ_API TagItem* CloneTagItems(TagItem* list);

namespace kq {

// What may stand as a tag: a whole number or an enumeration. Deduced, so that a literal 0 is a tag and no null list.
template <class T>
concept TagNumber = (std::integral<T> || std::is_enum_v<T>) && !std::same_as<T, bool>;

// The word that carries `value` in a TagItem.
template <class T>
uptr TagWord(T value) {
    if constexpr (std::is_null_pointer_v<T>)
        return 0;
    else if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<uptr>(value);
    else {
        static_assert(std::is_integral_v<T> || std::is_enum_v<T>, "a tag's data is a whole number or a pointer");
        return static_cast<uptr>(static_cast<std::intptr_t>(value));
    }
}

inline void FillTags(TagItem*) {}

template <class Tag>
void FillTags(TagItem*, Tag) {}   // the closing 0 tag: the array ends in a zero pair already

template <class Tag, class Data, class... Rest>
void FillTags(TagItem* at, Tag tag, Data data, Rest... rest) {
    at->Tag = static_cast<u32>(TagWord(tag));
    at->Data = TagWord(data);
    FillTags(at + 1, rest...);
}

// The pairs of a twin as an array, ended by a zero pair.
template <class... Args>
std::array<TagItem, sizeof...(Args) / 2 + 1> TagArray(Args... args) {
    std::array<TagItem, sizeof...(Args) / 2 + 1> tags{};
    FillTags(tags.data(), args...);
    return tags;
}

}   // namespace kq
