// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The growable array of the whole library. It differs from std::vector on purpose: growth relocates
// the elements by a raw copy whatever their type, a failed allocation is a result and no exception,
// and elements are never destroyed. An element that owns memory must be emptied by its holder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "foundation/log.h"
#include "foundation/memory.h"

namespace NMBUtils {

/// Fields and growth; where the store comes from is decided in NmbArray. `Index` is the type of
/// sizes and places. Not locked: threads that share an array size it beforehand.
template <class T, class Index = int, int Flag = 1>
class NmbArrayBase {
public:
    T* data = nullptr;      // null while nothing is allocated
    Index size = 0;         // elements in use
    Index capacity = 0;     // elements that the store holds
    Index growDivisor = 4;  // growth leaves newsz / growDivisor spare places

    NmbArrayBase() = default;
    NmbArrayBase(const NmbArrayBase&) = delete;
    NmbArrayBase& operator=(const NmbArrayBase&) = delete;
    virtual ~NmbArrayBase() = default;

    // Not checked.
    T& operator[](Index index) { return data[index]; }
    const T& operator[](Index index) const { return data[index]; }
    T* begin() { return data; }
    T* end() { return data + liveCount(); }
    const T* begin() const { return data; }
    const T* end() const { return data + liveCount(); }

    /// Resizes; new places are copies of `*fill`, or default-constructed without it (plain types
    /// keep what the allocator gave). Growth leaves spare places unless `exact`; the store never
    /// shrinks. Returns 1, or 0 without memory: then the array is empty and its contents are lost.
    /// A negative size is refused with 0, yet `size` takes it.
    int SetSize(Index newsz, const T* fill = nullptr, bool exact = false);

    /// Adds at the end; 0 leaves it out.
    int Append(const T& value);

    /// Puts a value before `index` (0 to `size`); 0 leaves it out.
    int Insert(Index index, const T& value);

protected:
    virtual void* allocateStore(std::size_t bytes) = 0;
    void freeStore() {
        freeMem(static_cast<void*>(data));
        data = nullptr;
        capacity = 0;
    }

private:
    // NOLINTNEXTLINE(bugprone-sizeof-expression): elements may be pointers.
    static constexpr std::size_t elementBytes() { return sizeof(T); }
    /// `size` can be negative: see SetSize.
    std::size_t liveCount() const { return size > 0 ? static_cast<std::size_t>(size) : 0; }
    Index capacityFor(Index newsz, bool exact) const;
    bool addPlace();
    int grow(Index newCapacity, void** oldStore);
    void constructPlaces(std::size_t from, std::size_t to, const T* fill);
};

/// `ZeroFill` 1: the store starts filled with zeros.
template <class T, class Index = int, int ZeroFill = 0, int Flag = 1>
class NmbArray : public NmbArrayBase<T, Index, Flag> {
public:
    NmbArray() = default;
    ~NmbArray() override { Clear(); }

    /// Gives the store back.
    void Clear() {
        this->size = 0;
        this->freeStore();
    }

protected:
    void* allocateStore(std::size_t bytes) override {
        return ZeroFill ? allocZeroedArrayStore(bytes) : allocArrayStore(bytes);
    }
};

// --- Implementation ------------------------------------------------------------------------------

template <class T, class Index, int Flag>
int NmbArrayBase<T, Index, Flag>::SetSize(Index newsz, const T* fill, bool exact) {
    if constexpr (std::is_signed_v<Index>) {
        if (newsz < 0) {
            logLine("[ERROR] NmbArray SetSize() with a negative newsz!\n");
            size = newsz;
            return 0;
        }
    }
    if (newsz <= size) {
        size = newsz;
        return 1;
    }
    // The old store lives until the new places are filled, since `fill` may lie in it.
    void* oldStore = nullptr;
    if (newsz > capacity && !grow(capacityFor(newsz, exact), &oldStore))
        return 0;
    constructPlaces(liveCount(), static_cast<std::size_t>(newsz), fill);
    freeMem(oldStore);
    size = newsz;
    return 1;
}

template <class T, class Index, int Flag>
Index NmbArrayBase<T, Index, Flag>::capacityFor(Index newsz, bool exact) const {
    if (exact)
        return newsz;
    constexpr Index kLeastSpare = 8;
    const Index share = growDivisor > 0 ? static_cast<Index>(newsz / growDivisor) : 0;
    const Index spare = share > kLeastSpare ? share : kLeastSpare;
    const Index room = static_cast<Index>(std::numeric_limits<Index>::max() - newsz);
    return static_cast<Index>(newsz + (spare < room ? spare : room));
}

/// Moves to a larger store and hands out the old one; without memory gives up everything.
template <class T, class Index, int Flag>
int NmbArrayBase<T, Index, Flag>::grow(Index newCapacity, void** oldStore) {
    static_assert(alignof(T) <= alignof(std::max_align_t), "the store has no larger alignment");
    const auto count = static_cast<std::uint64_t>(newCapacity);
    const bool fits = count <= static_cast<std::uint64_t>(PTRDIFF_MAX) / elementBytes();
    void* const store =
        fits ? allocateStore(static_cast<std::size_t>(count) * elementBytes()) : nullptr;
    if (!store) {
        freeStore();
        size = 0;
        return 0;
    }
    if (liveCount() > 0)
        std::memcpy(store, static_cast<const void*>(data), liveCount() * elementBytes());
    *oldStore = data;
    data = static_cast<T*>(store);
    capacity = newCapacity;
    return 1;
}

template <class T, class Index, int Flag>
void NmbArrayBase<T, Index, Flag>::constructPlaces(std::size_t from, std::size_t to,
                                                   const T* fill) {
    if constexpr (std::is_copy_constructible_v<T>) {
        if (fill) {
            if constexpr (std::is_trivially_copyable_v<T>) {
                const T value = *fill;
                for (std::size_t i = from; i < to; ++i)
                    data[i] = value;
            } else {
                for (std::size_t i = from; i < to; ++i)
                    new (static_cast<void*>(data + i)) T(*fill);
            }
            return;
        }
    }
    if constexpr (!std::is_trivially_default_constructible_v<T> &&
                  std::is_default_constructible_v<T>) {
        for (std::size_t i = from; i < to; ++i)
            new (static_cast<void*>(data + i)) T;
    }
}

/// One element more; false without memory, and where `size` was negative and is so no more.
template <class T, class Index, int Flag>
bool NmbArrayBase<T, Index, Flag>::addPlace() {
    if (size == std::numeric_limits<Index>::max())
        return false;
    return SetSize(static_cast<Index>(size + 1)) && liveCount() > 0;
}

template <class T, class Index, int Flag>
int NmbArrayBase<T, Index, Flag>::Append(const T& value) {
    T copy(value);
    if (!addPlace())
        return 0;
    data[size - 1] = std::move(copy);
    return 1;
}

template <class T, class Index, int Flag>
int NmbArrayBase<T, Index, Flag>::Insert(Index index, const T& value) {
    // A negative place is beyond the count as well.
    if (static_cast<std::uint64_t>(index) > liveCount())
        return 0;
    T copy(value);
    if (!addPlace())
        return 0;
    for (Index i = static_cast<Index>(size - 1); i > index; --i)
        data[i] = std::move(data[i - 1]);
    data[index] = std::move(copy);
    return 1;
}

}  // namespace NMBUtils
