// Feeds arbitrary bytes to the control server's HTTP request parser, whole and in two pieces
// (as they may arrive), and checks that a parsed request never claims more bytes than it had.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "agent/http_request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    auto whole = quillo::agent::parseRequest(input);
    if (whole && (whole->size > size || whole->body.size() > size)) {
        __builtin_trap();
    }
    // A prefix is either incomplete or the same request (the body is framed by its length).
    auto prefix = quillo::agent::parseRequest(input.substr(0, size / 2));
    if (prefix && whole && prefix->size != whole->size) {
        __builtin_trap();
    }
    return 0;
}
