// A value in static storage that is never destroyed: `exit` runs beside live threads, which may still be using it.
#pragma once

template <class Value>
union Immortal {
    constexpr Immortal() : value{} {}
    ~Immortal() {}

    Value value;
};
