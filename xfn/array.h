// array.h: a growing array of plain items. What the items own is released by whoever owns the array.
#ifndef XFN_ARRAY_H
#define XFN_ARRAY_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace xfn {

// All zeros is an empty array, so that it may stand in a record from calloc.
template <class T> struct Array {
    static_assert(std::is_trivially_copyable_v<T>);
    T *items;
    std::size_t count;
    std::size_t capacity;

    T *begin() const { return items; }
    T *end() const { return items + count; }

    // Puts an item before the one at this place. False if memory runs out; nothing has changed then.
    bool insert(std::size_t at, T item) {
        if (count == capacity) {
            const std::size_t larger = capacity != 0 ? 2 * capacity : 4;
            void *moved = reallocarray(items, larger, sizeof(T));
            if (moved == nullptr)
                return false;
            items = static_cast<T *>(moved);
            capacity = larger;
        }
        if (at != count)
            std::memmove(items + at + 1, items + at, (count - at) * sizeof(T));
        items[at] = item;
        ++count;
        return true;
    }
    bool append(T item) { return insert(count, item); }

    void erase(std::size_t at) {
        --count;
        if (at != count)
            std::memmove(items + at, items + at + 1, (count - at) * sizeof(T));
    }

    // Iteration through the C interface: *position is the number of the current item, from 1; 0 is
    // before the first, count + 1 behind the last.
    T *first(void **position) const { return current(position, 1); }
    T *last(void **position) const { return current(position, count); }
    T *next(void **position) const { return current(position, number(*position) + 1); }
    T *previous(void **position) const {
        const std::size_t now = number(*position);
        return current(position, now != 0 ? now - 1 : 0);
    }
    static std::size_t number(const void *position) {
        return reinterpret_cast<std::uintptr_t>(position);
    }

private:
    T *current(void **position, std::size_t now) const {
        now = now > count ? count + 1 : now;
        *position = reinterpret_cast<void *>(static_cast<std::uintptr_t>(now));
        return now != 0 && now <= count ? items + (now - 1) : nullptr;
    }
};

} // namespace xfn

#endif
