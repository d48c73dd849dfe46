#pragma once

#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "app_error.h"
#include "assert.h"

namespace quillo {

// A value or an AppError, shaped like std::expected (which GCC 12 offers only in C++23 mode).
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit
    Result(AppError error) : m_state(std::in_place_index<1>, std::move(error)) {}  // NOLINT

    bool has_value() const { return m_state.index() == 0; }
    explicit operator bool() const { return has_value(); }

    T& value() & {
        QUILLO_ASSERT(has_value());
        return std::get<0>(m_state);
    }
    const T& value() const& {
        QUILLO_ASSERT(has_value());
        return std::get<0>(m_state);
    }
    T&& value() && {
        QUILLO_ASSERT(has_value());
        return std::get<0>(std::move(m_state));
    }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    const AppError& error() const {
        QUILLO_ASSERT(!has_value());
        return std::get<1>(m_state);
    }

    template <class U>
    T value_or(U&& fallback) const& {
        return has_value() ? value() : static_cast<T>(std::forward<U>(fallback));
    }

private:
    std::variant<T, AppError> m_state;
};

template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(AppError error) : m_error(std::move(error)) {}  // NOLINT: implicit

    bool has_value() const { return !m_error.has_value(); }
    explicit operator bool() const { return has_value(); }
    const AppError& error() const {
        QUILLO_ASSERT(!has_value());
        return *m_error;
    }

private:
    std::optional<AppError> m_error;
};

}  // namespace quillo
