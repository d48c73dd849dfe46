#include "app_error.h"

#include <cstring>

namespace quillo {

AppError AppError::fromErrno(int code, const std::string& context) {
    std::string text = std::strerror(code);
    if (!context.empty()) {
        text = context + ": " + text;
    }
    return AppError(text + ".", context);
}

}  // namespace quillo
