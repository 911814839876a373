#pragma once
// utCopy: the tag of copying constructors and `become` operations, for types whose plain copy
// is either deleted or means something else:
//
//     giXform3 c(utCopy, t);
//     pages.become(utCopy, other);

struct utCopyTag {
    explicit constexpr utCopyTag() = default;
};
inline constexpr utCopyTag utCopy{};
