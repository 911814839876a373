#pragma once
// Run-time type records without the language's RTTI.
//
// A class states its own record and its base with one macro at the top of its body:
//
//     class kapParameterMap : public kapParameter {
//         UT_TYPE(kapParameterMap, kapParameter)
//         ...
//
// and the root of a hierarchy with UT_TYPE_ROOT(kapParameter). The macro gives the class
//   static ut_static_type()            its record;
//   virtual ut_dynamic_type()          the record of the object's own class;
//   virtual ut_is_kind_of(id)          true for the class's record or any base's record;
//   static ut_dynamic_cast(p)          p as a pointer to the class when p is non-null and of that
//                                      kind, else null (const and non-const; nullptr gives null).
//
// A record is identified by a 64-bit hash of the class name computed at compile time, so records
// compare equal across shared-library boundaries without any registration. The macro leaves the
// class body in `public:` access.

#include <cstddef>
#include <cstdint>
#include <string_view>

struct utTypeID {
    std::uint64_t hash = 0;
    std::string_view name;
    constexpr bool operator==(const utTypeID& other) const noexcept { return hash == other.hash; }
};

constexpr utTypeID ut_make_type_id(std::string_view name) noexcept {
    std::uint64_t h = 14695981039346656037ull;
    for (char c : name) {
        h ^= static_cast<unsigned char>(c);
        h *= 1099511628211ull;
    }
    return utTypeID{h, name};
}

#define UT_TYPE_CASTS_(Class)                                                                      \
    static Class* ut_dynamic_cast(std::nullptr_t) noexcept {                                       \
        return nullptr;                                                                            \
    }                                                                                              \
    template <class From>                                                                          \
    static Class* ut_dynamic_cast(From* p) noexcept {                                              \
        return (p != nullptr && p->ut_is_kind_of(ut_static_type())) ? static_cast<Class*>(p)       \
                                                                    : nullptr;                     \
    }                                                                                              \
    template <class From>                                                                          \
    static const Class* ut_dynamic_cast(const From* p) noexcept {                                  \
        return (p != nullptr && p->ut_is_kind_of(ut_static_type())) ? static_cast<const Class*>(p) \
                                                                    : nullptr;                     \
    }

#define UT_TYPE_ROOT(Class)                                        \
  public:                                                          \
    static constexpr utTypeID ut_static_type() noexcept {          \
        return ut_make_type_id(#Class);                            \
    }                                                              \
    virtual utTypeID ut_dynamic_type() const noexcept {            \
        return ut_static_type();                                   \
    }                                                              \
    virtual bool ut_is_kind_of(const utTypeID& t) const noexcept { \
        return t == ut_static_type();                              \
    }                                                              \
    UT_TYPE_CASTS_(Class)

#define UT_TYPE(Class, Base)                                        \
  public:                                                           \
    static constexpr utTypeID ut_static_type() noexcept {           \
        return ut_make_type_id(#Class);                             \
    }                                                               \
    utTypeID ut_dynamic_type() const noexcept override {            \
        return ut_static_type();                                    \
    }                                                               \
    bool ut_is_kind_of(const utTypeID& t) const noexcept override { \
        return t == ut_static_type() || Base::ut_is_kind_of(t);     \
    }                                                               \
    UT_TYPE_CASTS_(Class)

// Free forms: ut_dynamic_cast<T>(p) and ut_is_kind_of<T>(p).
template <class T, class From>
auto ut_dynamic_cast(From* p) noexcept {
    return T::ut_dynamic_cast(p);
}
template <class T, class From>
bool ut_is_kind_of(const From* p) noexcept {
    return p != nullptr && p->ut_is_kind_of(T::ut_static_type());
}
