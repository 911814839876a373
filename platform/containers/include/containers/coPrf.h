#pragma once
// coPrf<T>: a counted reference that either owns its object or refers to one owned elsewhere.
//
//     coPrf<Rec> a(new Rec);                          owns: the last reference deletes it
//     coPrf<Rec> b(coPrfExtern, &rec);                external: never deleted
//     coPrf<Rec> c(coPrfExtern, p, coPrfExternalDeleter([](void* q) { pool.give_back(q); }));
//                                                     external: when the last reference goes,
//                                                     the deleter is called once with the object
//
// Copies share the count (and the owning or external way of release); `external()` tells which
// way a reference was made. A coPrf converts to a std::shared_ptr<T> that shares the same count,
// so the object lives while either kind of handle does. A reference to a derived class converts to
// one to its base. Not synchronised beyond what std::shared_ptr gives.

#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

struct coPrfExternTag {
    explicit constexpr coPrfExternTag() = default;
};
inline constexpr coPrfExternTag coPrfExtern{};

// The release of an externally owned object: called once, with the object, when the last
// reference to it goes. A default-constructed deleter does nothing.
class coPrfExternalDeleter {
  public:
    coPrfExternalDeleter() = default;
    explicit coPrfExternalDeleter(std::function<void(void*)> release)
        : release_(std::move(release)) {}
    void operator()(void* object) const {
        if (release_) release_(object);
    }

  private:
    std::function<void(void*)> release_;
};

// A coPrf<From> converts to a coPrf<To> when a From* converts to a To*.
template <class From, class To>
concept coPrfConvertible = std::is_convertible_v<From*, To*>;

template <class T>
class coPrf {
  public:
    coPrf() noexcept = default;
    coPrf(std::nullptr_t) noexcept {}
    // Takes ownership of `owned` (allocated with new).
    explicit coPrf(T* owned) : ptr_(owned) {}
    // Refers to `object` without owning it; `release` is called when the last reference goes.
    coPrf(coPrfExternTag, T* object, coPrfExternalDeleter release = {})
        : ptr_(object != nullptr ? std::shared_ptr<T>(object, Release{std::move(release)})
                                 : std::shared_ptr<T>()),
          external_(object != nullptr) {}
    // Shares ownership with a std::shared_ptr.
    coPrf(std::shared_ptr<T> shared) noexcept : ptr_(std::move(shared)) {}
    template <coPrfConvertible<T> U>
    coPrf(const coPrf<U>& other) noexcept : ptr_(other.ptr_), external_(other.external_) {}

    T* get() const noexcept { return ptr_.get(); }
    T& operator*() const noexcept { return *ptr_; }
    T* operator->() const noexcept { return ptr_.get(); }
    explicit operator bool() const noexcept { return ptr_ != nullptr; }

    // Whether the object is owned elsewhere (made with coPrfExtern).
    bool external() const noexcept { return external_; }
    long use_count() const noexcept { return ptr_.use_count(); }
    void reset() noexcept {
        ptr_.reset();
        external_ = false;
    }

    operator std::shared_ptr<T>() const noexcept { return ptr_; }
    const std::shared_ptr<T>& shared() const noexcept { return ptr_; }

    friend bool operator==(const coPrf& a, const coPrf& b) noexcept { return a.ptr_ == b.ptr_; }

  private:
    template <class U>
    friend class coPrf;

    struct Release {
        coPrfExternalDeleter deleter;
        void operator()(T* object) const { deleter(const_cast<std::remove_cv_t<T>*>(object)); }
    };

    std::shared_ptr<T> ptr_;
    bool external_ = false;
};
