#pragma once
// Read into every source of the woven build before anything else. Each mutant has a number; KEMVI_MUTANT in the
// environment names the one that is on. KEMVI_MUTANTS_SEEN names a file with a byte for each, in which is noted what a
// test would see of it: 1 where the code was reached, 2 where the mutant would have made a difference there.

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mutants {

struct Settings {
    int chosen = -1;
    unsigned char* seen = nullptr; // in the file's own pages: what a dying process noted stays
};

inline Settings readSettings() {
    Settings settings;
    if (const char* number = std::getenv("KEMVI_MUTANT"))
        settings.chosen = std::atoi(number);
    if (const char* path = std::getenv("KEMVI_MUTANTS_SEEN")) {
        const int file = ::open(path, O_RDWR | O_CLOEXEC);

        struct stat about {};

        if (file < 0 || ::fstat(file, &about) != 0)
            std::abort();
        void* pages =
            ::mmap(nullptr, static_cast<std::size_t>(about.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (pages == MAP_FAILED)
            std::abort();
        settings.seen = static_cast<unsigned char*>(pages);
        ::close(file);
    }
    return settings;
}

inline const Settings& settings() {
    static const Settings all = readSettings();
    return all;
}

inline bool isOn(int number, bool differs) {
    const Settings& all = settings();
    if (all.seen != nullptr && all.seen[number] < 2)
        all.seen[number] = differs ? 2 : 1;
    return all.chosen == number;
}

/// Whether a statement is left out.
constexpr bool leftOut(int number) {
    return !__builtin_is_constant_evaluated() && isOn(number, true);
}

/// A condition that mutant `always` makes true and mutant `never` makes false; -1 is none.
constexpr bool decided(int always, int never, bool value) {
    if (__builtin_is_constant_evaluated())
        return value;
    if (always >= 0 && isOn(always, !value))
        return true;
    if (never >= 0 && isOn(never, value))
        return false;
    return value;
}

constexpr bool either(int number, bool value, bool changed) {
    return !__builtin_is_constant_evaluated() && isOn(number, value != changed) ? changed : value;
}

// By value: a constant that is only read needs no capture in a lambda.
template <typename Left, typename Right>
constexpr bool less(int number, Left left, Right right) {
    return either(number, left < right, left <= right);
}

template <typename Left, typename Right>
constexpr bool lessOrEqual(int number, Left left, Right right) {
    return either(number, left <= right, left < right);
}

template <typename Left, typename Right>
constexpr bool greater(int number, Left left, Right right) {
    return either(number, left > right, left >= right);
}

template <typename Left, typename Right>
constexpr bool greaterOrEqual(int number, Left left, Right right) {
    return either(number, left >= right, left > right);
}

template <typename Left, typename Right>
constexpr auto sum(int number, Left left, Right right) {
    return !__builtin_is_constant_evaluated() && isOn(number, right != 0) ? left - right : left + right;
}

template <typename Left, typename Right>
constexpr auto difference(int number, Left left, Right right) {
    return !__builtin_is_constant_evaluated() && isOn(number, right != 0) ? left + right : left - right;
}

} // namespace mutants
