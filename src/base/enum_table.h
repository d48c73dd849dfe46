#pragma once

#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

namespace quillo {

// Every stored choice is an enum class with string raw values. An enum opts in by specialising
// EnumTable with its cases in declaration order:
//
//   template <> struct EnumTable<AspectRatio> {
//       static constexpr std::pair<AspectRatio, std::string_view> cases[] = {...};
//   };
//
// The first row is the enumeration's first case, which several stored settings fall back to.
template <class E>
struct EnumTable;

template <class E>
constexpr std::string_view rawValue(E value) {
    for (const auto& [item, raw] : EnumTable<E>::cases) {
        if (item == value) {
            return raw;
        }
    }
    return {};
}

template <class E>
constexpr std::optional<E> fromRawValue(std::string_view raw) {
    for (const auto& [item, text] : EnumTable<E>::cases) {
        if (text == raw) {
            return item;
        }
    }
    return std::nullopt;
}

template <class E>
constexpr E firstCase() {
    return EnumTable<E>::cases[0].first;
}

template <class E>
constexpr size_t caseCount() {
    return std::size(EnumTable<E>::cases);
}

}  // namespace quillo
