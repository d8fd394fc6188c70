// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One object per thread for each of many short-lived owners. Platform keys for this are few and
// would run out in a process that opens thousands of channels; here an owner takes a number that
// is used again after it, and a generation tells a thread's old entry from its new one.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace nimbra {

/// Anything that a thread keeps for an owner.
struct ThreadLocalObject {
    virtual ~ThreadLocalObject() = default;
};

/// The table of one thread, indexed by slot number. Plain data, so that reading it costs no more
/// than reading a global.
struct ThreadSlotTable {
    struct Entry {
        std::uint64_t generation;
        ThreadLocalObject* object;
    };
    Entry* entries;
    std::uint32_t count;
};
#if defined(__GNUC__) && defined(__ELF__)
[[gnu::tls_model("initial-exec")]]
#endif
extern constinit thread_local ThreadSlotTable threadSlotTable;

/// The slot of one owner. Its objects are deleted when their thread ends or with the slot,
/// whichever comes first. No thread may use a slot that is being destroyed.
class ThreadSlot {
public:
    ThreadSlot();
    ~ThreadSlot();
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    /// The calling thread's object, null before its set. No lock.
    ThreadLocalObject* get() const {
        const ThreadSlotTable& table = threadSlotTable;
        if (number_ >= table.count || table.entries[number_].generation != generation_)
            return nullptr;
        return table.entries[number_].object;
    }
    /// Stores the calling thread's object, once per thread. Takes the lock of all slots. Throws
    /// std::bad_alloc.
    void set(std::unique_ptr<ThreadLocalObject> object) const;

    /// Slot numbers handed out so far: the most owners that ever lived at a time.
    static std::uint32_t numbersInUse();
    /// Objects of this slot, over all threads.
    std::size_t objectCount() const;

private:
    friend struct ThreadSlotCleaner;
    std::uint32_t number_;
    std::uint64_t generation_;
    mutable std::vector<ThreadLocalObject*> objects_;  // under the lock of all slots
};

}  // namespace nimbra
