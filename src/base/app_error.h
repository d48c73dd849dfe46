#pragma once

#include <string>
#include <utility>

namespace quillo {

// The application's single error kind. `message` is a full, user-facing sentence that every
// caller shows unchanged (status lines, agent tool results, the command line). `detail` holds
// the underlying library or system cause (errno text, av_strerror) for logs only.
struct AppError {
    std::string message;
    std::string detail;

    AppError() = default;
    explicit AppError(std::string msg, std::string why = {})
        : message(std::move(msg)), detail(std::move(why)) {}

    // The system's own text for errno `code`, as the message: where the platform gives its own
    // error text it is shown as it stands.
    static AppError fromErrno(int code, const std::string& context = {});

    bool operator==(const AppError&) const = default;
};

}  // namespace quillo
